#pragma once

#include "descriptor.h"
#include "text.h"

#include <vector>

namespace vqxsim {

/// A pseudo-terminal in raw mode. Its host side is held open here too, so that the line outlives hosts that
/// come and go.
struct Pty {
    Descriptor target; ///< the simulator's end, non-blocking
    Descriptor host;   ///< keeps the line up; never read or written
    Descriptor watch;  ///< readable when hosts have opened or closed the device
    std::string path;  ///< the device that a host opens
    Descriptor link;   ///< the symbolic link that was made to the device
};

/// What a host did to the device.
enum class HostEvent { opened, closed };

/// Opens a new pseudo-terminal.
[[nodiscard]] ErrorText openPty(Pty& pty);

/// What hosts did since the last call, in that order.
[[nodiscard]] std::vector<HostEvent> takeHostEvents(Pty& pty);

/// Makes `link` a symbolic link to the device. Replaces the link of a simulator that has ended, but nothing
/// else.
[[nodiscard]] ErrorText makeLink(Pty& pty, const std::string& link);

/// Removes `link` if it is the one that was made.
void removeLink(Pty& pty, const std::string& link);

} // namespace vqxsim
