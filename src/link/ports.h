#pragma once

#include "support/text.h"

#include <string>
#include <string_view>
#include <vector>

namespace secapp {

/// The kernel's directory of terminal devices, which lists the USB serial ports.
inline constexpr std::string_view systemTtyDirectory = "/sys/class/tty/";

/// Searches for ports and copies the path of the one with that index to `device`; -1 means the only one. An
/// error if there is none; with -1 and several, lists them on standard error.
[[nodiscard]] ErrorText getSerialDeviceName(int index, std::string& device,
                                            std::string_view directory = systemTtyDirectory);

/// Lists the USB serial ports on standard error and ends the program with status 0.
[[noreturn]] void listSerialDevices();

// Lower-level functions.

/// Searches for USB serial ports below `directory` (which ends in "/") and returns all paths found in this
/// run, in the order of discovery, including those whose device is gone. This module owns the list.
const std::vector<std::string>& serial_get_port_list(std::string_view directory = systemTtyDirectory);

/// Searches for ports and returns their number.
[[nodiscard]] int serial_get_port_count(std::string_view directory = systemTtyDirectory);

/// Searches for ports and writes their paths to standard error, one per line.
void serial_list(std::string_view directory = systemTtyDirectory);

} // namespace secapp
