#pragma once

#include "flash/flash.h"

#include <chrono>

namespace vqxsim {

using Duration = std::chrono::steady_clock::duration;

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
struct PersistentState {
    unsigned bootBank = 0;
    std::optional<UsbIdentity> usbIdentity; ///< once programmed
    bool operator==(const PersistentState&) const = default;
};

/// The companion firmware: takes bytes, gives bytes, owns the memory. It knows no clock; callers tell it the
/// time.
struct Firmware {
    Flash flash;
    SparseMemory buffer; ///< transfer buffer
    std::chrono::microseconds programTime{0};
    std::chrono::milliseconds eraseTime{0};

    std::vector<std::string> accepted; ///< words of commands that succeed without effect

    bool batchMode = false; ///< command lines are not repeated to the host
    unsigned debugOptions = 7;
    PersistentState persistent;
    StuckBit* stuckBit = nullptr; ///< not owned; applies to every flash command

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

} // namespace vqxsim
