#pragma once

#include "commands/handler.h"

namespace secapp {

/// Sends the command to the target unchanged.
[[nodiscard]] ErrorText genericHandler(HandlerData& record, std::string_view text, std::string_view word,
                                       const HandlerEntry* entry);

/// Sends the command with each argument that is an address expression replaced by its value in hexadecimal;
/// arguments that do not evaluate, and those that begin with "+", are sent as typed.
[[nodiscard]] ErrorText genericHandlerWithAddressParser(HandlerData& record, std::string_view text,
                                                        std::string_view word, const HandlerEntry* entry);

} // namespace secapp
