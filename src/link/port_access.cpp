#include "link/port_access.h"

#include "support/text.h"

#include <cerrno>
#include <charconv>
#include <cinttypes>
#include <filesystem>
#include <fstream>

#include <grp.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace secapp {
namespace {

/// The process in a line of /proc/locks ("1: FLOCK  ADVISORY  WRITE 1234 00:18:5 0 EOF") that locks `file`,
/// else 0.
int lockHolder(std::string_view line, std::string_view file) {
    int process = 0;
    bool isFlock = false;
    std::optional<std::string_view> previous;
    while (const std::optional<std::string_view> word = nextWord(line)) {
        isFlock = isFlock || *word == "FLOCK";
        if (isFlock && *word == file && previous)
            std::from_chars(previous->data(), previous->data() + previous->size(), process);
        previous = word;
    }
    return process;
}

/// "program (process N)".
std::string describeProcess(int process) {
    std::string program;
    std::getline(std::ifstream(formatText("/proc/%d/comm", process)), program);
    return formatText("%s (process %d)", program.empty() ? "another program" : program.c_str(), process);
}

/// The entries of a directory of /proc; none when it cannot be read, or is gone by now.
std::vector<std::string> entriesOf(const std::string& directory) {
    std::vector<std::string> names;
    std::error_code error;
    std::filesystem::directory_iterator entry(directory, error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error))
        names.push_back(entry->path().filename().string());
    return names;
}

bool hasOpen(int process, const struct stat& device) {
    const std::string directory = formatText("/proc/%d/fd/", process);
    for (const std::string& name : entriesOf(directory)) {
        struct stat open {};
        if (::stat((directory + name).c_str(), &open) == 0 && S_ISCHR(open.st_mode) &&
            open.st_rdev == device.st_rdev)
            return true;
    }
    return false;
}

} // namespace

bool lockDevice(int handle) {
    return ::flock(handle, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK;
}

std::optional<std::string> deviceHolder(int handle) {
    struct stat device {};
    if (::fstat(handle, &device) != 0)
        return std::nullopt;
    const std::string file = formatText("%02x:%02x:%" PRIu64, major(device.st_dev), minor(device.st_dev),
                                        std::uint64_t{device.st_ino});
    std::ifstream locks("/proc/locks");
    for (std::string line; std::getline(locks, line);) {
        const int process = lockHolder(line, file);
        if (process > 0)
            return describeProcess(process);
    }
    return std::nullopt;
}

std::vector<std::string> deviceUsers(int handle) {
    std::vector<std::string> users;
    struct stat device {};
    if (::fstat(handle, &device) != 0)
        return users;
    for (const std::string& name : entriesOf("/proc")) {
        int process = 0;
        std::from_chars(name.data(), name.data() + name.size(), process);
        if (process > 0 && process != ::getpid() && hasOpen(process, device))
            users.push_back(describeProcess(process));
    }
    return users;
}

std::optional<std::string> deviceGroup(const char* path) {
    struct stat device {};
    if (::stat(path, &device) != 0)
        return std::nullopt;
    const group* const entry = ::getgrgid(device.st_gid);
    return entry != nullptr ? entry->gr_name : std::to_string(device.st_gid);
}

} // namespace secapp
