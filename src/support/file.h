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

/// Opens a file or a pipe whose data are read to their end. Null for a file that cannot be read, a
/// directory, a device whose data have no end, and a named pipe that no process opens for writing within 5 s.
[[nodiscard]] File openDataFile(const std::string& path);

/// The size of a regular file in bytes and its time of modification, which show that it was written to.
struct FileState {
    std::int64_t size = 0;
    std::int64_t seconds = 0;
    std::int64_t nanoseconds = 0;
    bool operator==(const FileState&) const = default;
};

/// The state of an open file; empty unless it is a regular file.
[[nodiscard]] std::optional<FileState> fileState(std::FILE* stream);

/// A file opened for reading, at its start, with its size in bytes and its state when it was opened.
struct MeasuredFile {
    File stream;
    std::int64_t size = 0;
    std::optional<FileState> state;
};

/// Opens a file and finds its size; empty when it cannot be opened, or when its size cannot be found, as with
/// a pipe.
[[nodiscard]] std::optional<MeasuredFile> openMeasuredFile(const std::string& path);

/// The size in bytes of a file that is at its start, found by seeking; empty if unknown, as for a file that
/// reports size 0 but has data.
[[nodiscard]] std::optional<std::int64_t> measureFile(std::FILE* stream);

} // namespace secapp
