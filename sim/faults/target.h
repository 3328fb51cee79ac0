#pragma once

#include "faults/kinds.h"

namespace vqxsim {

/// The firmware with the faults of its requests and answers. Independent of link and clock.
struct Target {
    Firmware firmware;
    std::vector<Fault> faults;
    Random random;
    std::uint64_t exchanges = 0;        ///< requests answered so far
    std::uint64_t received = 0;         ///< bytes taken so far
    bool burstFaultsApplied = false;    ///< to the burst that is arriving
    std::optional<ByteFault> byteFault; ///< of this burst; its byte has not arrived yet
    std::vector<std::string> notes;     ///< of byte faults whose exchange has not ended yet
};

/// The result of one request.
struct Outcome {
    Request request;
    Exchange exchange;
    std::chrono::microseconds busy{0}; ///< how long the firmware works before it answers
};

/// Takes bytes from the host up to the end of the first request and carries it out into `outcome`, which
/// stays empty while a request is incomplete. Returns how many bytes it took, possibly none. `bytes` must not
/// be empty.
[[nodiscard]] std::size_t takeBytes(Target& target, std::string_view bytes, std::optional<Outcome>& outcome);

/// Carries out the request that ends with a silence of the host.
[[nodiscard]] Outcome takeSilence(Target& target);

} // namespace vqxsim
