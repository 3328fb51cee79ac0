#pragma once

#include <cstdio>
#include <string_view>

namespace secapp {

/// Writes the text to the stream unchanged. Standard output is flushed before each write to standard error.
void writeText(std::FILE* stream, std::string_view text);

/// Flushes standard output.
void flushOutput();

/// Whether standard error is a terminal. Hints are for a person who reads it, and are written only then.
[[nodiscard]] bool errorsGoToTerminal();

/// Flushes standard output and ends the program with the status. When output was lost, the first error is
/// reported on standard error, and status 0 becomes 255.
[[noreturn]] void exitProgram(int status);

/// Runs a whole program and ends the process. An exception is reported on standard error and ends it with the
/// status `failure`. A standard stream that is closed at the start is opened so that its use fails; else a
/// file or port opened later could take its descriptor. Standard output is written line by line, even into a
/// file.
[[noreturn]] void runProgram(void (*program)(int argc, char** argv), int argc, char** argv, int failure);

} // namespace secapp
