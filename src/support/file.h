#pragma once

#include <cstdio>
#include <memory>
#include <string>

#include <sys/stat.h>

namespace secapp {

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

/// Opens a file, no folder, for reading, with `flags` beside O_RDONLY, and tells what it is. None when that
/// fails; a named pipe that nobody opens for writing fails after 5 s.
[[nodiscard]] File openFile(const std::string& path, int flags, struct stat& status);

/// The size of a file at its start, in bytes, taken by seeking; -1 for one that has none but data all the
/// same.
[[nodiscard]] long long measureFile(std::FILE* stream);

/// Opens a file whose data are read to their end, a pipe included. None for what cannot be read, a folder,
/// and a device whose data have no end.
[[nodiscard]] File openDataFile(const std::string& path);

} // namespace secapp
