#pragma once

#include "commands/handler.h"

namespace secapp {

/// "download [+c] file": loads a file into the target's transfer buffer.
[[nodiscard]] ErrorText downloadHandler(HandlerData& record, std::string_view text, std::string_view word,
                                        const HandlerEntry* entry);

} // namespace secapp
