#include "support/file.h"

#include <csignal>

#include <fcntl.h>
#include <unistd.h>

namespace secapp {
namespace {

constexpr unsigned pipePatience = 5;

/// `open`, which an alarm interrupts: a named pipe would wait for its writer for ever.
int openInTime(const char* path, int flags) {
    struct sigaction interrupt {};
    struct sigaction before {};
    interrupt.sa_handler = [](int) {};
    ::sigaction(SIGALRM, &interrupt, &before);
    ::alarm(pipePatience);
    const int descriptor = ::open(path, O_RDONLY | O_CLOEXEC | flags);
    ::alarm(0);
    ::sigaction(SIGALRM, &before, nullptr);
    return descriptor;
}

} // namespace

File openFile(const std::string& path, int flags, struct stat& status) {
    const int descriptor = openInTime(path.c_str(), flags);
    if (descriptor < 0)
        return nullptr;
    if (::fstat(descriptor, &status) != 0 || S_ISDIR(status.st_mode)) {
        ::close(descriptor);
        return nullptr;
    }
    return File(::fdopen(descriptor, "rb"));
}

long long measureFile(std::FILE* stream) {
    if (::fseeko(stream, 0, SEEK_END) != 0)
        return -1;
    const long long size = ::ftello(stream);
    if (size < 0 || ::fseeko(stream, 0, SEEK_SET) != 0)
        return -1;
    if (size == 0 && std::fgetc(stream) != EOF)
        return -1;
    std::rewind(stream);
    return size;
}

File openDataFile(const std::string& path) {
    struct stat status {};
    File stream = openFile(path, 0, status);
    // A terminal ends when its user says so.
    if (stream && S_ISCHR(status.st_mode) && ::isatty(::fileno(stream.get())) == 0 &&
        measureFile(stream.get()) < 0)
        return nullptr;
    return stream;
}

} // namespace secapp
