#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

namespace secapp {

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

/// An image opened for reading, at its start.
struct ImageFile {
    File stream;
    /// Bytes.
    std::int64_t size = 0;
};

/// Opens a file whose data are read to their end, a pipe included. None for what cannot be read, a folder,
/// and a device whose data have no end.
[[nodiscard]] File openDataFile(const std::string& path);

/// Opens an image whose size can be taken beforehand; none when it cannot be opened or, as with a pipe,
/// measured.
[[nodiscard]] std::optional<ImageFile> openImageFile(const std::string& path);

/// Whether the image was read to the end that it had when it was opened, without an error.
[[nodiscard]] bool wasReadWhole(const ImageFile& image);

} // namespace secapp
