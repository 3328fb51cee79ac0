#include "port/pty.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <termios.h>
#include <thread>
#include <unistd.h>

namespace vqxsim {

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

std::chrono::nanoseconds measureWakeUp(const Pty& pty) {
    using Clock = std::chrono::steady_clock;
    constexpr int patienceMs = 10000; // a byte given up would come later, as a RETURN that no host sent
    constexpr auto longest = std::chrono::microseconds(50); // more is a busy machine
    constexpr auto untilAsleep = std::chrono::microseconds(200);
    std::array<Clock::time_point, 64> written{};
    std::array<Clock::duration, 64> times{};
    for (std::size_t i = 0; i < times.size(); ++i) {
        std::thread host([&] {
            std::this_thread::sleep_for(untilAsleep);
            written[i] = Clock::now();
            const ssize_t count = write(pty.host.get(), "\r", 1);
            static_cast<void>(count); // the poll tells whether it worked
        });
        pollfd wait{pty.target.get(), POLLIN, 0};
        char byte = 0;
        const bool came = poll(&wait, 1, patienceMs) == 1;
        const auto now = Clock::now();
        host.join();
        if (!came || read(pty.target.get(), &byte, 1) != 1)
            return Clock::duration::zero();
        times[i] = now - written[i];
    }
    std::sort(times.begin(), times.end());
    return std::min<Clock::duration>(times[times.size() / 2], longest);
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

ErrorText makeLink(const Pty& pty, const std::string& link) {
    struct stat status {};
    if (lstat(link.c_str(), &status) == 0) {
        if (!S_ISLNK(status.st_mode))
            return link + ": exists and is no symbolic link";
        if (unlink(link.c_str()) != 0)
            return systemError(link);
    }
    return symlink(pty.path.c_str(), link.c_str()) == 0 ? std::nullopt : systemError(link);
}

void removeLink(const Pty& pty, const std::string& link) {
    std::array<char, PATH_MAX> found{};
    const ssize_t length = readlink(link.c_str(), found.data(), found.size());
    if (length > 0 && std::string_view(found.data(), static_cast<std::size_t>(length)) == pty.path)
        unlink(link.c_str());
}

} // namespace vqxsim
