#pragma once

#include <cstdio>
#include <optional>
#include <string>
#include <string_view>

namespace secapp {

/// Writes the text to the stream as it stands. What waits in standard output goes out before anything is
/// written to standard error.
void writeText(std::FILE* stream, std::string_view text);

/// Reads one line of at most `textLimit` characters, its newline included, as `fgets` does: a longer line
/// arrives in pieces. None at the end of the stream or when it cannot be read.
[[nodiscard]] std::optional<std::string> readTextLine(std::FILE* stream);

/// Ends the program with the status, once standard output is written out. A success whose output could not be
/// written is reported on standard error and ends with status 255.
[[noreturn]] void finish(int status);

/// Runs a whole program and ends the process: with `failure` when the program throws, which standard error
/// then tells. The three standard streams exist, so that no file or port opened later is taken for one of
/// them, and standard output is written line by line, whatever it leads to.
[[noreturn]] void runProgram(void (*program)(int argc, char** argv), int argc, char** argv, int failure);

} // namespace secapp
