#include "port/pty.h"

#include "file.h"

#include <array>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

namespace vqxsim {

namespace {

Descriptor openLink(const std::string& link) {
    return Descriptor(open(link.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
}

/// The byte of the device that a simulator locks as long as the link leads to it. It depends on the link,
/// because the path of a closed device is soon used for another one.
off_t linkByte(const Descriptor& link) {
    struct stat status {};
    return fstat(link.get(), &status) == 0 ? static_cast<off_t>(status.st_ino & INT64_MAX) : 0;
}

/// Fails unless `link` is the link of a simulator that has ended.
ErrorText checkReplaceable(const std::string& link) {
    std::array<char, PATH_MAX> found{};
    const ssize_t length = readlink(link.c_str(), found.data(), found.size() - 1);
    if (length < 0 || !std::string_view(found.data()).starts_with("/dev/pts/"))
        return link + ": exists and is not the link of a simulator";
    const Descriptor device(open(found.data(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    const auto holder = device ? lockHolder(device, linkByte(openLink(link))) : std::nullopt;
    return holder ? ErrorText(link + ": is the link of " + *holder) : std::nullopt;
}

} // namespace

ErrorText openPty(Pty& pty) {
    pty.target = Descriptor(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK));
    std::array<char, 128> name{};
    if (!pty.target || grantpt(pty.target.get()) != 0 || unlockpt(pty.target.get()) != 0 ||
        ptsname_r(pty.target.get(), name.data(), name.size()) != 0)
        return systemError("pseudo-terminal");
    pty.path = name.data();
    pty.host = Descriptor(open(pty.path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    termios settings{};
    if (!pty.host || tcgetattr(pty.host.get(), &settings) != 0)
        return systemError(pty.path);
    cfmakeraw(&settings);
    if (tcsetattr(pty.host.get(), TCSANOW, &settings) != 0)
        return systemError(pty.path);
    pty.watch = Descriptor(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    if (!pty.watch || inotify_add_watch(pty.watch.get(), pty.path.c_str(), IN_OPEN | IN_CLOSE) < 0)
        return systemError(pty.path);
    return std::nullopt;
}

std::vector<HostEvent> takeHostEvents(Pty& pty) {
    std::vector<HostEvent> events;
    alignas(inotify_event) std::array<char, 4096> buffer{};
    ssize_t length = 0;
    while ((length = read(pty.watch.get(), buffer.data(), buffer.size())) > 0) {
        for (ssize_t at = 0; at < length;) {
            inotify_event event{};
            std::memcpy(&event, buffer.data() + at, sizeof event);
            events.push_back((event.mask & IN_OPEN) != 0 ? HostEvent::opened : HostEvent::closed);
            at += static_cast<ssize_t>(sizeof event + event.len);
        }
    }
    return events;
}

ErrorText makeLink(Pty& pty, const std::string& link) {
    if (openLink(link)) {
        if (ErrorText error = checkReplaceable(link))
            return error;
        if (unlink(link.c_str()) != 0)
            return systemError(link);
    }
    if (symlink(pty.path.c_str(), link.c_str()) != 0)
        return systemError(link);
    pty.link = openLink(link);
    const auto holder = lockByte(pty.host, linkByte(pty.link));
    return holder ? ErrorText(pty.path + ": is locked by " + *holder) : std::nullopt;
}

void removeLink(Pty& pty, const std::string& link) {
    // While the link is open, no other file has its inode number.
    if (pty.link && linkByte(openLink(link)) == linkByte(pty.link))
        unlink(link.c_str());
    pty.link = Descriptor();
}

} // namespace vqxsim
