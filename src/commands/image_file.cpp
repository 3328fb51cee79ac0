#include "commands/image_file.h"

#include <fcntl.h>

namespace secapp {

std::optional<ImageFile> openImageFile(const std::string& path) {
    struct stat status {};
    // A pipe is refused anyway: do not wait for somebody to write to it.
    File stream = openFile(path, O_NONBLOCK, status);
    if (!stream)
        return std::nullopt;
    const long long size = measureFile(stream.get());
    if (size < 0)
        return std::nullopt;
    return ImageFile{std::move(stream), size};
}

bool wasReadWhole(const ImageFile& image) {
    return std::ferror(image.stream.get()) == 0 && ::ftello(image.stream.get()) == image.size;
}

} // namespace secapp
