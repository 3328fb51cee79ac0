#pragma once

#include "firmware/state.h"

namespace vqxsim {

/// Whether the firmware has this command; case-sensitive.
[[nodiscard]] bool isCommand(std::string_view word);

/// Runs the command line; appends the output to `answer`, without a status line. Fails with the text for the
/// error status.
[[nodiscard]] ErrorText runCommand(Firmware& firmware, std::string_view line, Answer& answer);

} // namespace vqxsim
