#include "commands/image_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace secapp {
namespace {

/// The size of a file at its start, taken by seeking; none for one that has no size but data all the same.
std::optional<std::int64_t> measure(std::FILE* stream) {
    if (::fseeko(stream, 0, SEEK_END) != 0)
        return std::nullopt;
    const std::int64_t size = ::ftello(stream);
    if (size < 0 || ::fseeko(stream, 0, SEEK_SET) != 0)
        return std::nullopt;
    if (size == 0 && std::fgetc(stream) != EOF)
        return std::nullopt;
    std::rewind(stream);
    return size;
}

File openWithoutFolders(const std::string& path, int flags, struct stat& status) {
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | flags);
    if (descriptor < 0)
        return nullptr;
    if (::fstat(descriptor, &status) != 0 || S_ISDIR(status.st_mode)) {
        ::close(descriptor);
        return nullptr;
    }
    return File(::fdopen(descriptor, "rb"));
}

} // namespace

File openDataFile(const std::string& path) {
    struct stat status {};
    File stream = openWithoutFolders(path, 0, status);
    // A terminal ends when its user says so.
    if (stream && S_ISCHR(status.st_mode) && ::isatty(::fileno(stream.get())) == 0 && !measure(stream.get()))
        return nullptr;
    return stream;
}

std::optional<ImageFile> openImageFile(const std::string& path) {
    struct stat status {};
    // A pipe is refused anyway: do not wait for somebody to write to it.
    File stream = openWithoutFolders(path, O_NONBLOCK, status);
    if (!stream)
        return std::nullopt;
    const std::optional<std::int64_t> size = measure(stream.get());
    if (!size)
        return std::nullopt;
    return ImageFile{std::move(stream), *size};
}

bool wasReadWhole(const ImageFile& image) {
    return std::ferror(image.stream.get()) == 0 && ::ftello(image.stream.get()) == image.size;
}

} // namespace secapp
