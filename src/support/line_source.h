#pragma once

#include <cstddef>
#include <cstdio>
#include <optional>
#include <string>

namespace secapp {

/// A stream that is read line by line.
struct LineSource {
    /// Not owned.
    std::FILE* stream;
    /// The content of a regular file that was read whole, and the number of its bytes returned so far.
    std::optional<std::string> content = std::nullopt;
    std::size_t returned = 0;
};

/// Standard input, the source of scripts and of answers to prompts.
[[nodiscard]] LineSource& standardInput();

/// Reads the stream to its end if it is a regular file, so that later changes to the file do not matter.
void readWhole(LineSource& source);

/// Returns one line of at most `textLimit` characters, including its newline, as `fgets` does: a longer line
/// is returned in pieces. Empty at the end of the stream or when it cannot be read.
[[nodiscard]] std::optional<std::string> readTextLine(LineSource& source);

} // namespace secapp
