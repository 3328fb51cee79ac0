#pragma once

#include "firmware/state.h"

namespace vqxsim {

/// The firmware abandons a burst if no byte arrives for this time.
constexpr Duration burstTimeout = std::chrono::milliseconds(500);

/// Text without "=" and without a line end is a request if no byte follows for this time.
constexpr Duration rawTextTimeout = std::chrono::milliseconds(20);

/// Longest command line, in characters without its line end.
constexpr std::size_t lineLimit = 4096;

/// The configuration of a firmware.
struct FirmwareConfig {
    std::vector<RegionSpec> regions;
    std::string directory;                    ///< see `Flash`
    bool nullMemory = false;                  ///< see `Flash`; bursts are checked but not stored
    std::chrono::microseconds programTime{0}; ///< per page
    std::chrono::milliseconds eraseTime{0};   ///< per erase
    std::vector<std::string> accepted = {};   ///< words of commands that succeed without effect
};

/// Initialises `firmware` as after power-on, with the contents of its directory. Fails if the directory
/// cannot be used.
[[nodiscard]] ErrorText startFirmware(Firmware& firmware, const FirmwareConfig& config);

/// Switches the firmware off and on: only flash and persistent state stay.
void restartFirmware(Firmware& firmware);

/// Takes bytes up to the end of the first complete request, which it puts into `request`; returns how many it
/// took, at least one of `bytes`, which must not be empty. Every request must be executed before more bytes
/// are given.
[[nodiscard]] std::size_t collectRequest(Firmware& firmware, std::string_view bytes,
                                         std::optional<Request>& request);

/// The silence of the host that ends a request; none if only further bytes end it.
[[nodiscard]] std::optional<Duration> silenceTimeout(const Firmware& firmware);

/// The request that ends with a silence longer than `silenceTimeout`: raw text or an incomplete burst.
[[nodiscard]] Request requestAfterSilence(Firmware& firmware);

/// Carries a request out.
[[nodiscard]] Answer execute(Firmware& firmware, const Request& request);

/// Passes `bytes` to the firmware and returns all its answers.
[[nodiscard]] std::string exchangeBytes(Firmware& firmware, std::string_view bytes);

/// The command word of a line, "burst" for the bytes of a burst, else empty.
[[nodiscard]] std::string_view requestWord(const Request& request);

/// The checksum of a burst: the sum of its little-endian words; a partial last word is completed with 0xFF.
[[nodiscard]] std::uint32_t burstChecksum(std::string_view bytes);

} // namespace vqxsim
