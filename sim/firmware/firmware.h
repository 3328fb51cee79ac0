#pragma once

#include "firmware/state.h"

namespace vqxsim {

/// A burst whose bytes stop coming for this long is given up.
constexpr Duration burstTimeout = std::chrono::milliseconds(500);

/// Text without "=" and without a line end is a request of its own once nothing followed for this long.
constexpr Duration rawTextTimeout = std::chrono::milliseconds(20);

/// Longest command line, in characters without its line end.
constexpr std::size_t lineLimit = 4096;

/// What a firmware is made with.
struct FirmwareConfig {
    std::vector<RegionSpec> regions;
    std::string folder;                       ///< see `Flash`
    bool nullMemory = false;                  ///< see `Flash`; bursts are checked but not stored
    std::chrono::microseconds programTime{0}; ///< per page
    std::chrono::milliseconds eraseTime{0};   ///< per erase
    std::vector<std::string> accepted = {};   ///< words of commands that succeed without effect
};

/// Makes `firmware` one that was just switched on, with what the folder of its memory holds. Fails when the
/// folder of the memory cannot be used.
[[nodiscard]] ErrorText startFirmware(Firmware& firmware, const FirmwareConfig& config);

/// Switches the firmware off and on again: flash and what else lasts stay, everything else is as at the
/// start.
void restartFirmware(Firmware& firmware);

/// Takes bytes up to the end of the first complete request, which it puts into `request`; returns how many it
/// took, at least one of `bytes`, which must not be empty. Every request must be executed before more bytes
/// are given.
[[nodiscard]] std::size_t collectRequest(Firmware& firmware, std::string_view bytes,
                                         std::optional<Request>& request);

/// How long the host must be silent for the silence to become a request by itself; none when it does not.
[[nodiscard]] std::optional<Duration> silenceTimeout(const Firmware& firmware);

/// The request that a silence longer than the silenceTimeout makes: raw text that has ended, or a burst that
/// broke off.
[[nodiscard]] Request requestAfterSilence(Firmware& firmware);

/// Carries a request out.
[[nodiscard]] Reply execute(Firmware& firmware, const Request& request);

/// Gives the firmware `bytes` and returns all that the host would read back.
[[nodiscard]] std::string exchangeBytes(Firmware& firmware, std::string_view bytes);

/// The word by which a request is known: the command word of a line, "burst" for the bytes of a burst, else
/// empty.
[[nodiscard]] std::string_view requestWord(const Request& request);

/// The checksum of a burst: the sum of its little-endian words, missing bytes of a partial last word counting
/// as 0xFF.
[[nodiscard]] std::uint32_t burstChecksum(std::string_view bytes);

} // namespace vqxsim
