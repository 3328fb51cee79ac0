#pragma once

#include "text.h"

namespace vqxsim {

/// Reads the whole file into `text`. Fails when it cannot be read, or has more than `limit` bytes; a missing
/// file leaves `errno` at ENOENT.
[[nodiscard]] ErrorText readFile(const std::string& path, std::size_t limit, std::string& text);

} // namespace vqxsim
