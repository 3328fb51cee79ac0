#pragma once

#include <optional>
#include <string>
#include <vector>

namespace secapp {

/// Takes the advisory lock that keeps a second host off the device; it is gone with the descriptor or the
/// process. False when another process holds it. A device that cannot be locked counts as free.
[[nodiscard]] bool lockDevice(int handle);

/// The process that holds the device's lock, as "program (process N)"; none when the system does not tell.
[[nodiscard]] std::optional<std::string> deviceHolder(int handle);

/// The other processes that have the device open, each as "program (process N)", as far as the system tells.
[[nodiscard]] std::vector<std::string> deviceUsers(int handle);

/// The name of the group to which the device belongs, its number when it has no name; none when the device
/// cannot be examined.
[[nodiscard]] std::optional<std::string> deviceGroup(const char* path);

} // namespace secapp
