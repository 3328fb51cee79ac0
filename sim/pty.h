#pragma once

#include "memory.h"

namespace vqxsim {

/// A pseudo-terminal in raw mode. Its host side is held open here too, so that the line outlives hosts that
/// come and go.
struct Pty {
    Descriptor target; ///< the simulator's end, non-blocking
    Descriptor host;   ///< keeps the line up; never read or written
    std::string path;  ///< the device that a host opens
};

/// Opens a new pseudo-terminal.
[[nodiscard]] Failure openPty(Pty& pty);

/// Makes `link` a symbolic link to the device; replaces a symbolic link, but nothing else.
[[nodiscard]] Failure makeLink(const Pty& pty, const std::string& link);

/// Removes `link` if it still leads to the device.
void removeLink(const Pty& pty, const std::string& link);

} // namespace vqxsim
