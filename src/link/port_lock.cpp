#include "link/port_lock.h"

#include "support/text.h"

#include <cerrno>
#include <charconv>
#include <cinttypes>
#include <fstream>

#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

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
        if (process <= 0)
            continue;
        std::string program;
        std::getline(std::ifstream(formatText("/proc/%d/comm", process)), program);
        return formatText("%s (process %d)", program.empty() ? "another program" : program.c_str(), process);
    }
    return std::nullopt;
}

} // namespace secapp
