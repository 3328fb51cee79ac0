#pragma once

#include "support/text.h"

#include <string>
#include <string_view>
#include <vector>

namespace secapp {

/// The kernel's folder of terminal devices, in which the USB serial ports are looked for.
inline constexpr std::string_view systemTtyFolder = "/sys/class/tty/";

/// Looks again and copies the path of the port with that index to `device`; -1 asks for the only one. An
/// error when there is none; with -1 and several, they are listed on standard error.
[[nodiscard]] ErrorText getSerialDeviceName(int index, std::string& device,
                                            std::string_view folder = systemTtyFolder);

/// Lists the USB serial ports on standard error and ends the program with status 0.
[[noreturn]] void listSerialDevices();

// What these are made of.

/// Looks for USB serial ports below `folder` (which ends in "/") and returns all paths found in this run, in
/// the order of their finding: a path stays in the list when its device goes. The list belongs to this room.
const std::vector<std::string>& serial_get_port_list(std::string_view folder = systemTtyFolder);

/// The number of ports after a new look.
[[nodiscard]] int serial_get_port_count(std::string_view folder = systemTtyFolder);

/// Looks again and writes the list to standard error, a path a line.
void serial_list(std::string_view folder = systemTtyFolder);

} // namespace secapp
