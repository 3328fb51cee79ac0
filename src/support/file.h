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

/// What tells that a regular file was written to: its size in bytes and its time of modification.
struct FileState {
    std::int64_t size = 0;
    std::int64_t seconds = 0;
    std::int64_t nanoseconds = 0;
    bool operator==(const FileState&) const = default;
};

/// The state of an open file; none for what is no regular file.
[[nodiscard]] std::optional<FileState> fileState(std::FILE* stream);

/// A file opened for reading, at its start, its size in bytes, and its state at that time.
struct MeasuredFile {
    File stream;
    std::int64_t size = 0;
    std::optional<FileState> state;
};

/// Opens a file whose size can be taken beforehand; none when it cannot be opened or, as with a pipe,
/// measured.
[[nodiscard]] std::optional<MeasuredFile> openMeasuredFile(const std::string& path);

/// The size of a file at its start, in bytes, taken by seeking; none for one that has none but data all the
/// same.
[[nodiscard]] std::optional<std::int64_t> measureFile(std::FILE* stream);

/// The bytes of a stream from its place to its end; none when it cannot be read to its end.
[[nodiscard]] std::optional<std::string> readToEnd(std::FILE* stream);

} // namespace secapp
