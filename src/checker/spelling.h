#pragma once

#include <optional>
#include <string_view>

namespace secapp {

/// Whether the companion firmware has a command of exactly this name.
[[nodiscard]] bool isTargetCommand(std::string_view word);

/// The command of secapp or of the companion firmware that a misspelt word resembles; empty for a command of
/// the companion firmware and for a word that resembles no command.
[[nodiscard]] std::optional<std::string_view> similarCommand(std::string_view word);

} // namespace secapp
