#pragma once

#include "flash.h"

#include <chrono>

namespace vqxsim {

using Duration = std::chrono::steady_clock::duration;

/// A burst whose bytes stop coming for this long is given up.
constexpr Duration burstPatience = std::chrono::milliseconds(500);

/// Text without "=" and without a line end is a request of its own once nothing followed for this long.
constexpr Duration rawTextPatience = std::chrono::milliseconds(20);

/// Longest command line, in characters without its line end.
constexpr std::size_t lineLimit = 4096;

/// What a firmware is made with.
struct FirmwareConfig {
    std::vector<RegionSpec> regions;
    std::string folder;                       ///< see `Flash`
    bool nullMemory = false;                  ///< see `Flash`; bursts are checked but not stored
    std::chrono::microseconds programTime{0}; ///< per page
    std::chrono::milliseconds eraseTime{0};   ///< per erase
};

/// A burst that was announced and whose bytes are on their way.
struct Burst {
    std::uint64_t length = 0;
    std::uint64_t offset = 0;
    std::uint32_t checksum = 0;
    std::string bytes;
};

/// USB identifiers.
struct UsbIdentity {
    std::uint16_t product = 0;
    std::uint16_t vendor = 0;
    bool operator==(const UsbIdentity&) const = default;
};

/// What the firmware remembers besides the flash when it is switched off.
struct Lasting {
    unsigned bootBank = 0;
    std::optional<UsbIdentity> usbIdentity; ///< once programmed
    bool operator==(const Lasting&) const = default;
};

/// The companion firmware: takes bytes, gives bytes, owns the memory. It knows no clock; callers tell it the
/// time.
struct Firmware {
    Flash flash;
    SparseMemory buffer; ///< transfer buffer
    std::chrono::microseconds programTime{0};
    std::chrono::milliseconds eraseTime{0};

    bool batchMode = false; ///< command lines are not repeated to the host
    unsigned debugOptions = 7;
    Lasting lasting;
    WeakCell* weakCell = nullptr; ///< not owned; applies to every flash command

    std::string line; ///< the command line that is arriving, cut at one character over the limit
    bool afterReturn = false;
    std::optional<Burst> burst;
};

enum class RequestKind {
    line,       ///< a command line, without "=" and line end
    burst,      ///< the bytes of a burst
    longLine,   ///< a line over the limit
    brokenBurst ///< a burst whose bytes stopped coming
};

/// One complete request of the host.
struct Request {
    RequestKind kind = RequestKind::line;
    std::string text; ///< of a burst, its bytes
    Burst header;     ///< of a burst, what its header said
};

/// The answer to one request.
struct Reply {
    std::string text;                  ///< lines ended by CR LF, the last one is the status line
    std::chrono::microseconds busy{0}; ///< how long the firmware works before it answers
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
[[nodiscard]] std::optional<Duration> patience(const Firmware& firmware);

/// The request that a silence longer than the patience makes: raw text that has ended, or a burst that broke
/// off.
[[nodiscard]] Request endSilence(Firmware& firmware);

/// Carries a request out.
[[nodiscard]] Reply execute(Firmware& firmware, const Request& request);

/// Gives the firmware `bytes` and returns all that the host would read back.
[[nodiscard]] std::string converse(Firmware& firmware, std::string_view bytes);

/// The word by which a request is known: the command word of a line, "burst" for the bytes of a burst, else
/// empty.
[[nodiscard]] std::string_view requestWord(const Request& request);

/// The checksum of a burst: the sum of its little-endian words, missing bytes of a partial last word counting
/// as 0xFF.
[[nodiscard]] std::uint32_t burstChecksum(std::string_view bytes);

} // namespace vqxsim
