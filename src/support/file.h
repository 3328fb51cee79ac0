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

/// Opens a file whose data are read to their end, a pipe included. None for what cannot be read, a folder, a
/// device whose data have no end, and a named pipe that nobody opens for writing within 5 s.
[[nodiscard]] File openDataFile(const std::string& path);

/// A file opened for reading, at its start, and its size in bytes.
struct MeasuredFile {
    File stream;
    std::int64_t size = 0;
};

/// Opens a file whose size can be taken beforehand; none when it cannot be opened or, as with a pipe,
/// measured.
[[nodiscard]] std::optional<MeasuredFile> openMeasuredFile(const std::string& path);

/// The size of a file at its start, in bytes, taken by seeking; none for one that has none but data all the
/// same.
[[nodiscard]] std::optional<std::int64_t> measureFile(std::FILE* stream);

} // namespace secapp
