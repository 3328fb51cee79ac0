#pragma once

#include <cstdint>
#include <string_view>

namespace secapp {

/// Non-zero while each script command waits for a confirmation.
[[nodiscard]] std::int32_t getScriptPause();
void setScriptPause(std::int32_t pause);

/// Asks on standard output whether to run the command and reads the answer from standard input. False if the
/// user skips it. The answer "q", and the end of standard input, end the program with status 1.
[[nodiscard]] bool confirmCommand(std::string_view text);

/// Writes the message to standard output and waits for a line on standard input; false at its end.
[[nodiscard]] bool waitForLine(std::string_view message);

} // namespace secapp
