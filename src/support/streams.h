#pragma once

#include <cstdio>
#include <optional>
#include <string>
#include <string_view>

namespace secapp {

/// Writes the text to the stream as it stands. What waits in standard output goes out before anything is
/// written to standard error.
void writeText(std::FILE* stream, std::string_view text);

/// Writes out what waits in standard output.
void flushOutput();

/// Whether a person reads standard error. Hints go there only then: scripts see what they always saw.
[[nodiscard]] bool errorsGoToTerminal();

/// Reads one line of at most `textLimit` characters, its newline included, as `fgets` does: a longer line
/// arrives in pieces. None at the end of the stream or when it cannot be read.
[[nodiscard]] std::optional<std::string> readTextLine(std::FILE* stream);

/// As `readTextLine`, off the front of a text.
[[nodiscard]] std::optional<std::string> takeTextLine(std::string_view& rest);

/// Ends the program with the status, once standard output is written out. A success whose output could not be
/// written is reported on standard error, with the first error, and ends with status 255.
[[noreturn]] void finish(int status);

/// Runs a whole program and ends the process: with `failure` when the program throws, which standard error
/// then tells. A standard stream that is closed is opened such that its use fails, so that no file or port
/// opened later is taken for it. Standard output is written line by line, whatever it leads to.
[[noreturn]] void runProgram(void (*program)(int argc, char** argv), int argc, char** argv, int failure);

} // namespace secapp
