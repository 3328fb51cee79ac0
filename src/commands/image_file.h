#pragma once

#include "support/file.h"

#include <cstdint>
#include <optional>
#include <string>

namespace secapp {

/// An image opened for reading, at its start.
struct ImageFile {
    File stream;
    /// Bytes.
    std::int64_t size = 0;
};

/// Opens an image whose size can be taken beforehand; none when it cannot be opened or, as with a pipe,
/// measured.
[[nodiscard]] std::optional<ImageFile> openImageFile(const std::string& path);

/// Whether the image was read to the end that it had when it was opened, without an error.
[[nodiscard]] bool wasReadWhole(const ImageFile& image);

} // namespace secapp
