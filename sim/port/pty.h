#pragma once

#include "descriptor.h"
#include "text.h"

#include <chrono>
#include <vector>

namespace vqxsim {

/// A pseudo-terminal in raw mode. Its host side is held open here too, so that the line outlives hosts that
/// come and go.
struct Pty {
    Descriptor target; ///< the simulator's end, non-blocking
    Descriptor host;   ///< keeps the line up; never read or written
    Descriptor watch;  ///< readable when hosts have opened or closed the device
    std::string path;  ///< the device that a host opens
};

/// What a host did to the device.
enum class HostEvent { opened, closed };

/// Opens a new pseudo-terminal.
[[nodiscard]] ErrorText openPty(Pty& pty);

/// How long bytes written by a host typically take until a sleeping simulator runs; to be asked before a host
/// is there.
[[nodiscard]] std::chrono::nanoseconds measureWakeUp(const Pty& pty);

/// What hosts did since the last call, in that order.
[[nodiscard]] std::vector<HostEvent> takeHostEvents(Pty& pty);

/// Makes `link` a symbolic link to the device; replaces a symbolic link, but nothing else.
[[nodiscard]] ErrorText makeLink(const Pty& pty, const std::string& link);

/// Removes `link` if it still leads to the device.
void removeLink(const Pty& pty, const std::string& link);

} // namespace vqxsim
