#include "link/ports.h"

#include "support/streams.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

namespace secapp {
namespace {

std::vector<std::string> portList;

struct DirectoryCloser {
    void operator()(DIR* directory) const { ::closedir(directory); }
};

/// The names in the directory, in the order of `readdir`. Reports a directory that cannot be read.
std::vector<std::string> namesIn(const std::string& path) {
    std::vector<std::string> names;
    const std::unique_ptr<DIR, DirectoryCloser> directory(::opendir(path.c_str()));
    if (!directory) {
        writeText(stderr,
                  formatText("Error reading tty devices (%s): %s\n", path.c_str(), std::strerror(errno)));
        return names;
    }
    while (const dirent* entry = ::readdir(directory.get()))
        names.emplace_back(entry->d_name);
    return names;
}

/// The driver link of a USB device contains "usb", that of a built-in port does not.
bool isOnUsb(const std::string& classPath) {
    const std::string device = classPath + "/device";
    struct stat status {};
    if (::lstat(device.c_str(), &status) != 0 || !S_ISLNK(status.st_mode))
        return false;
    std::array<char, 1024> buffer{};
    const ssize_t length = ::readlink((device + "/driver").c_str(), buffer.data(), buffer.size());
    if (length <= 0)
        return false;
    std::string_view target(buffer.data(), static_cast<std::size_t>(length));
    for (; !target.empty(); target.remove_prefix(1))
        if (startsWithIgnoringCase(target, "usb"))
            return true;
    return false;
}

void getUSBSerialList(const std::string& directory) {
    const std::vector<std::string> names = namesIn(directory);
    for (auto name = names.rbegin(); name != names.rend(); ++name) {
        if (*name == "." || *name == ".." || !isOnUsb(directory + *name))
            continue;
        const std::string path = "/dev/" + *name;
        if (std::find(portList.begin(), portList.end(), path) == portList.end())
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
