#pragma once

#include "descriptor.h"
#include "text.h"

#include <sys/types.h>

namespace vqxsim {

/// Reads the whole file into `text`. Fails if it cannot be read or has more than `limit` bytes; `errno` is
/// ENOENT after that for a missing file.
[[nodiscard]] ErrorText readFile(const std::string& path, std::size_t limit, std::string& text);

/// Locks a byte of the open file, possibly beyond its end, until this process closes the file. Returns the
/// other process that has it locked, like `lockHolder`.
[[nodiscard]] std::optional<std::string> lockByte(const Descriptor& file, off_t byte);

/// The other process that has a byte locked, for a message; empty if none.
[[nodiscard]] std::optional<std::string> lockHolder(const Descriptor& file, off_t byte);

} // namespace vqxsim
