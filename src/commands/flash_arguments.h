#pragma once

#include "commands/handler.h"

namespace secapp {

/// "program", "verify", "erase" and "blankCheck": reads the command line, finds the memory of each address
/// and runs the operation there. The first error ends the command; operations at earlier addresses are not
/// undone.
[[nodiscard]] ErrorText programVerifyEraseHandler(HandlerData& record, std::string_view text,
                                                  std::string_view word, const HandlerEntry* entry);

} // namespace secapp
