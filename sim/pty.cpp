#include "pty.h"

#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

namespace vqxsim {

namespace {

Failure systemFailure(const std::string& what) {
    return what + ": " + std::strerror(errno);
}

} // namespace

Failure openPty(Pty& pty) {
    pty.target = Descriptor(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK));
    std::array<char, 128> name{};
    if (!pty.target || grantpt(pty.target.get()) != 0 || unlockpt(pty.target.get()) != 0 ||
        ptsname_r(pty.target.get(), name.data(), name.size()) != 0) {
        return systemFailure("pseudo-terminal");
    }
    pty.path = name.data();
    pty.host = Descriptor(open(pty.path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    termios settings{};
    if (!pty.host || tcgetattr(pty.host.get(), &settings) != 0) {
        return systemFailure(pty.path);
    }
    cfmakeraw(&settings);
    if (tcsetattr(pty.host.get(), TCSANOW, &settings) != 0) {
        return systemFailure(pty.path);
    }
    return std::nullopt;
}

Failure makeLink(const Pty& pty, const std::string& link) {
    struct stat status {};
    if (lstat(link.c_str(), &status) == 0) {
        if (!S_ISLNK(status.st_mode)) {
            return link + ": exists and is no symbolic link";
        }
        if (unlink(link.c_str()) != 0) {
            return systemFailure(link);
        }
    }
    return symlink(pty.path.c_str(), link.c_str()) == 0 ? std::nullopt : systemFailure(link);
}

void removeLink(const Pty& pty, const std::string& link) {
    std::array<char, PATH_MAX> found{};
    const ssize_t length = readlink(link.c_str(), found.data(), found.size());
    if (length > 0 && std::string_view(found.data(), static_cast<std::size_t>(length)) == pty.path) {
        unlink(link.c_str());
    }
}

} // namespace vqxsim
