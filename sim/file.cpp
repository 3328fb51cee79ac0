#include "file.h"

#include <array>
#include <cerrno>
#include <fcntl.h>

namespace vqxsim {

namespace {

struct flock lockOf(off_t byte) {
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = byte;
    lock.l_len = 1;
    return lock;
}

} // namespace

ErrorText readFile(const std::string& path, std::size_t limit, std::string& text) {
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
    if (!file)
        return systemError(path);
    text.clear();
    std::array<char, 0x4000> piece{};
    ssize_t count = 0;
    while ((count = read(file.get(), piece.data(), piece.size())) > 0) {
        text.append(piece.data(), static_cast<std::size_t>(count));
        if (text.size() > limit) {
            errno = EFBIG;
            return formatText("%s: has more than %zu bytes", path.c_str(), limit);
        }
    }
    return count == 0 ? std::nullopt : systemError(path);
}

std::optional<std::string> lockByte(const Descriptor& file, off_t byte) {
    struct flock lock = lockOf(byte);
    // A file system without locks is used without.
    if (fcntl(file.get(), F_SETLK, &lock) == 0 || (errno != EAGAIN && errno != EACCES))
        return std::nullopt;
    return lockHolder(file, byte).value_or("another process");
}

std::optional<std::string> lockHolder(const Descriptor& file, off_t byte) {
    struct flock lock = lockOf(byte);
    if (fcntl(file.get(), F_GETLK, &lock) != 0 || lock.l_type == F_UNLCK)
        return std::nullopt;
    return lock.l_pid > 0 ? formatText("process %d", lock.l_pid) : "another process";
}

} // namespace vqxsim
