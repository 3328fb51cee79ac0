#pragma once

#include "descriptor.h"
#include "text.h"

#include <sys/types.h>

namespace vqxsim {

/// Reads the whole file into `text`. Fails when it cannot be read, or has more than `limit` bytes; a missing
/// file leaves `errno` at ENOENT.
[[nodiscard]] ErrorText readFile(const std::string& path, std::size_t limit, std::string& text);

/// Locks a byte of the open file, which need not have it, until this process closes the file. Returns the
/// holder when another process has it locked, like `lockHolder`.
[[nodiscard]] std::optional<std::string> lockByte(const Descriptor& file, off_t byte);

/// The other process that has a byte locked, for a message; none when it is free.
[[nodiscard]] std::optional<std::string> lockHolder(const Descriptor& file, off_t byte);

} // namespace vqxsim
