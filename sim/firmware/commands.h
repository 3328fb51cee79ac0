#pragma once

#include "firmware/state.h"

namespace vqxsim {

/// Whether the firmware has a command of this word; upper and lower case count.
[[nodiscard]] bool isCommand(std::string_view word);

/// Looks the first word of `line` up in the table of commands and runs it; output goes to `reply`, without a
/// status line. Fails with the text for the error status.
[[nodiscard]] ErrorText runCommand(Firmware& firmware, std::string_view line, Reply& reply);

} // namespace vqxsim
