#include "link/ports.h"

#include "support/streams.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace secapp {
namespace {

std::vector<std::string> portList;

/// The driver link contains "usb" for a USB device, but not for a built-in port.
bool isOnUsb(const std::filesystem::path& tty) {
    std::error_code error;
    if (!std::filesystem::is_symlink(tty / "device", error))
        return false;
    const std::string driver = std::filesystem::read_symlink(tty / "device/driver", error).string();
    for (std::string_view rest = driver; !rest.empty(); rest.remove_prefix(1))
        if (startsWithIgnoringCase(rest, "usb"))
            return true;
    return false;
}

/// Adds the ports that are not in the list yet, the last of the directory first. Reports a directory that
/// cannot be read.
void getUSBSerialList(const std::string& directory) {
    std::error_code error;
    std::vector<std::filesystem::path> ttys;
    std::filesystem::directory_iterator entry(directory, error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error))
        ttys.push_back(entry->path());
    if (error)
        writeText(stderr, formatText("Error reading tty devices (%s): %s\n", directory.c_str(),
                                     std::strerror(error.value())));
    for (auto tty = ttys.rbegin(); tty != ttys.rend(); ++tty) {
        const std::string path = "/dev/" + tty->filename().string();
        if (isOnUsb(*tty) && std::find(portList.begin(), portList.end(), path) == portList.end())
            portList.push_back(path);
    }
}

} // namespace

const std::vector<std::string>& serial_get_port_list(std::string_view directory) {
    getUSBSerialList(std::string(directory));
    return portList;
}

int serial_get_port_count(std::string_view directory) {
    return static_cast<int>(serial_get_port_list(directory).size());
}

void serial_list(std::string_view directory) {
    for (const std::string& path : serial_get_port_list(directory))
        writeText(stderr, path + "\n");
}

ErrorText getSerialDeviceName(int index, std::string& device, std::string_view directory) {
    device.clear();
    const int count = serial_get_port_count(directory);
    if (count == 0)
        return formatError("No serial ports");
    if (count > 1 && index == -1) {
        writeText(stderr, "Multiple serial ports found:\n");
        serial_list(directory);
        return formatError("Use -d serial_port to select\n");
    }
    if (index == -1)
        index = 0;
    if (index < 0 || index >= count)
        return formatError("No serial port with index %d", index);
    device = portList[static_cast<std::size_t>(index)];
    return std::nullopt;
}

void listSerialDevices() {
    writeText(stderr, "USB serial devices:\n");
    serial_list();
    std::exit(0);
}

} // namespace secapp
