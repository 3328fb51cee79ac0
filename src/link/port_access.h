#pragma once

#include <optional>
#include <string>
#include <vector>

namespace secapp {

/// Takes the advisory lock of the device, which ends with the descriptor or the process. False when another
/// process holds it. A device that cannot be locked counts as free.
[[nodiscard]] bool lockDevice(int handle);

/// The process that holds the device's lock, as "program (process N)"; none if unknown.
[[nodiscard]] std::optional<std::string> deviceHolder(int handle);

/// The other processes that have the device open, each as "program (process N)", as far as they are known.
[[nodiscard]] std::vector<std::string> deviceUsers(int handle);

/// The name of the device's group, or its number if it has no name; none if the device cannot be examined.
[[nodiscard]] std::optional<std::string> deviceGroup(const char* path);

} // namespace secapp
