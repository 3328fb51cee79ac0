#pragma once

#include "commands/handler.h"

#include <cstdint>
#include <string>

namespace secapp {

/// "targetInfo": shows the target's part, memories and identification through the output handler.
[[nodiscard]] ErrorText infoHandler(HandlerData& record, std::string_view text, std::string_view word,
                                    const HandlerEntry* entry);

/// "queryFlash": shows the target's answer about its memories.
[[nodiscard]] ErrorText queryFlashHandler(HandlerData& record, std::string_view text, std::string_view word,
                                          const HandlerEntry* entry);

/// Shows the part line, unless the target does not name its part.
[[nodiscard]] ErrorText getPartInfo(HandlerData& record);

/// The external flash's device family, empty when the target does not name one.
[[nodiscard]] Result<std::string> getMorviInfo(HandlerData& record);

/// The target's whole identification.
[[nodiscard]] Result<std::string> getIDInfo(HandlerData& record);

/// A size in bytes as "512K bytes", or as "1000 bytes" if it is not a multiple of 1024.
[[nodiscard]] std::string toKString(std::int32_t size);

} // namespace secapp
