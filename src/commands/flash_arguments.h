#pragma once

#include "commands/handler.h"

namespace secapp {

/// "program", "verify", "erase" and "blankCheck": reads the command line, matches each address to one of the
/// target's regions and runs the operation on it. The first error ends the command; what was done for earlier
/// addresses stands.
[[nodiscard]] ErrorText programVerifyEraseHandler(HandlerData& record, std::string_view text,
                                                  std::string_view word, const HandlerEntry* entry);

} // namespace secapp
