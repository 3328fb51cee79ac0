#pragma once

#include "commands/handler.h"

namespace secapp {

/// "setBoot BankA|BankB|0|1": selects the flash bank that the target boots from.
[[nodiscard]] ErrorText setBootHandler(HandlerData& record, std::string_view text, std::string_view word,
                                       const HandlerEntry* entry);

/// "setVidPid vid pid": writes the USB identifiers, as typed, into the target's one-time-programmable memory.
[[nodiscard]] ErrorText setVidPidHandler(HandlerData& record, std::string_view text, std::string_view word,
                                         const HandlerEntry* entry);

} // namespace secapp
