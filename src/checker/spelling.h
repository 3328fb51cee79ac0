#pragma once

#include <optional>
#include <string_view>

namespace secapp {

/// The command of the tool or of the companion firmware that a word for the target was probably meant to be.
/// None when the word is a command of the firmware, or resembles nothing.
[[nodiscard]] std::optional<std::string_view> similarCommand(std::string_view word);

} // namespace secapp
