#include "support/file.h"

#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace secapp {
namespace {

/// In ms.
constexpr int pipeTimeout = 5000;

/// Opens a file, but not a directory, for reading, without waiting. `status` receives what it is.
File openFile(const std::string& path, struct stat& status) {
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (descriptor < 0)
        return nullptr;
    File stream(::fdopen(descriptor, "rb"));
    if (!stream)
        ::close(descriptor);
    else if (::fstat(descriptor, &status) != 0 || S_ISDIR(status.st_mode))
        stream.reset();
    return stream;
}

/// Whether a process has opened the pipe for writing, or does so in time. The first byte, if one was read, is
/// put back into the stream.
bool hasWriter(std::FILE* pipe) {
    pollfd wait{.fd = ::fileno(pipe), .events = POLLIN, .revents = 0};
    if (::poll(&wait, 1, pipeTimeout) != 0)
        return true;
    // A writer that has not written yet makes the read fail; without a writer the pipe is at its end.
    const int byte = std::fgetc(pipe);
    const bool ended = std::feof(pipe) != 0;
    std::clearerr(pipe);
    return byte != EOF ? std::ungetc(byte, pipe) == byte : !ended;
}

} // namespace

File openDataFile(const std::string& path) {
    struct stat status {};
    File stream = openFile(path, status);
    if (!stream || (S_ISFIFO(status.st_mode) && !hasWriter(stream.get())))
        return nullptr;
    // A device without a size has endless data, except a terminal: there the user ends them.
    const int descriptor = ::fileno(stream.get());
    if (S_ISCHR(status.st_mode) && ::isatty(descriptor) == 0 && !measureFile(stream.get()))
        return nullptr;
    const int flags = ::fcntl(descriptor, F_GETFL);
    return ::fcntl(descriptor, F_SETFL, flags & ~O_NONBLOCK) == 0 ? std::move(stream) : nullptr;
}

std::optional<MeasuredFile> openMeasuredFile(const std::string& path) {
    struct stat status {};
    File stream = openFile(path, status);
    if (!stream)
        return std::nullopt;
    const std::optional<FileState> state = fileState(stream.get());
    const std::optional<std::int64_t> size = measureFile(stream.get());
    return size ? std::optional(MeasuredFile{std::move(stream), *size, state}) : std::nullopt;
}

std::optional<FileState> fileState(std::FILE* stream) {
    struct stat status {};
    if (::fstat(::fileno(stream), &status) != 0 || !S_ISREG(status.st_mode))
        return std::nullopt;
    return FileState{status.st_size, status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
}

std::optional<std::int64_t> measureFile(std::FILE* stream) {
    // Checked first, because a stream that cannot seek may lose what was read ahead.
    if (::lseek(::fileno(stream), 0, SEEK_CUR) < 0 || ::fseeko(stream, 0, SEEK_END) != 0)
        return std::nullopt;
    const off_t size = ::ftello(stream);
    if (size < 0 || ::fseeko(stream, 0, SEEK_SET) != 0)
        return std::nullopt;
    const bool isMeasured = size > 0 || (std::fgetc(stream) == EOF && std::ferror(stream) == 0);
    std::rewind(stream);
    return isMeasured ? std::optional<std::int64_t>(size) : std::nullopt;
}

} // namespace secapp
