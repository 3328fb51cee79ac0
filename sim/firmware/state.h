#pragma once

#include "flash/flash.h"

#include <chrono>

namespace vqxsim {

using Duration = std::chrono::steady_clock::duration;

/// A burst that was announced and is arriving.
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

/// The state besides the flash that survives power-off.
struct PersistentState {
    unsigned bootBank = 0;
    std::optional<UsbIdentity> usbIdentity; ///< once programmed
    bool operator==(const PersistentState&) const = default;
};

/// The companion firmware: it reads bytes, returns answers and owns the memories. It is independent of the
/// clock.
struct Firmware {
    Flash flash;
    SparseMemory buffer; ///< transfer buffer
    std::chrono::microseconds programTime{0};
    std::chrono::milliseconds eraseTime{0};

    std::vector<std::string> accepted; ///< words of commands that succeed without effect

    bool batchMode = false; ///< command lines are not echoed
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
    brokenBurst ///< an incomplete burst, followed by a silence
};

/// One complete request of the host.
struct Request {
    RequestKind kind = RequestKind::line;
    std::string text; ///< of a burst, its bytes
    Burst header;     ///< of a burst
};

/// The answer to one request.
struct Answer {
    std::string text;                  ///< lines ended by CR LF, the last one is the status line
    std::chrono::microseconds busy{0}; ///< how long the firmware works before it answers
};

} // namespace vqxsim
