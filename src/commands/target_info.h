#pragma once

#include "commands/handler.h"

#include <cstdint>
#include <string>

namespace secapp {

/// "targetInfo": shows the target's part, memory regions and identification through the output handler.
[[nodiscard]] ErrorText infoHandler(HandlerData& record, std::string_view text, std::string_view word,
                                    const HandlerEntry* entry);

/// "queryFlash": shows the target's own answer about its memory regions.
[[nodiscard]] ErrorText queryFlashHandler(HandlerData& record, std::string_view text, std::string_view word,
                                          const HandlerEntry* entry);

// What these are made of.

/// Shows the part line; nothing when the target does not name its part.
[[nodiscard]] ErrorText getPartInfo(HandlerData& record);

/// Copies the external flash's device family to `family`, which stays as it is when the target does not name
/// one.
[[nodiscard]] ErrorText getMorviInfo(HandlerData& record, std::string& family);

/// Copies the target's whole identification to `identification`.
[[nodiscard]] ErrorText getIDInfo(HandlerData& record, std::string& identification);

/// A size in bytes as "512K bytes", or as "1000 bytes" when it is no multiple of 1024.
[[nodiscard]] std::string toKString(std::int32_t size);

} // namespace secapp
