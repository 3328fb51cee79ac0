#pragma once

#include "descriptor.h"
#include "text.h"

#include <vector>

namespace vqxsim {

/// A pseudo-terminal in raw mode. The simulator also keeps the host side open, so that the terminal stays
/// when a host closes it.
struct Pty {
    Descriptor target; ///< the simulator's end, non-blocking
    Descriptor host;   ///< never read or written
    Descriptor watch;  ///< readable when hosts have opened or closed the device
    std::string path;  ///< the device that a host opens
    Descriptor link;   ///< the symbolic link to the device
};

/// An event at the device.
enum class HostEvent { opened, closed };

/// Opens a new pseudo-terminal.
[[nodiscard]] ErrorText openPty(Pty& pty);

/// The events since the last call, in order.
[[nodiscard]] std::vector<HostEvent> takeHostEvents(Pty& pty);

/// Makes `link` a symbolic link to the device. Replaces the link of a simulator that has ended, but nothing
/// else.
[[nodiscard]] ErrorText makeLink(Pty& pty, const std::string& link);

/// Removes `link` if it is the one from `makeLink`.
void removeLink(Pty& pty, const std::string& link);

} // namespace vqxsim
