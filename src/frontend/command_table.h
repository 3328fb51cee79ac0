#pragma once

#include "commands/handler.h"

#include <array>
#include <string_view>

namespace secapp {

/// The script commands, in the order in which they are tried; the last row matches every other word.
extern const std::array<HandlerEntry, 17> handlerEntries;

/// The first row that matches the command word.
[[nodiscard]] const HandlerEntry& findHandler(std::string_view word);

} // namespace secapp
