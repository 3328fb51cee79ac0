#pragma once

#include <cstdint>
#include <string_view>

namespace secapp {

/// Non-zero while each script command waits for a confirmation.
[[nodiscard]] std::int32_t getScriptPause();
void setScriptPause(std::int32_t pause);

/// Asks on standard output whether to run the command and reads the answer from standard input. False when it
/// is to be skipped. The answer "q", or none at all, ends the program with status 1.
[[nodiscard]] bool confirmCommand(std::string_view text);

/// Writes the message to standard output and waits for a line on standard input; false when there is none.
[[nodiscard]] bool waitForLine(std::string_view message);

} // namespace secapp
