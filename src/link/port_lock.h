#pragma once

#include <optional>
#include <string>

namespace secapp {

/// Takes the advisory lock that keeps a second host off the device; it is gone with the descriptor or the
/// process. False when another process holds it. A device that cannot be locked counts as free.
[[nodiscard]] bool lockDevice(int handle);

/// The process that holds the device's lock, as "program (process N)"; none when the system does not tell.
[[nodiscard]] std::optional<std::string> deviceHolder(int handle);

} // namespace secapp
