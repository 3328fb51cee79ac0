#pragma once

#include "commands/handler.h"

#include <string>

namespace secapp {

/// The program's name, version and build date; the long form also says what the program is.
[[nodiscard]] std::string getVersionString(bool longForm);

/// The name by which the program was called: the part of the path after its last "/", which may be empty.
void setProgramName(std::string_view path);
[[nodiscard]] const std::string& getProgramName();

/// "version": shows the short version line, then the target's own answer.
[[nodiscard]] ErrorText versionHandler(HandlerData& record, std::string_view text, std::string_view word,
                                       const HandlerEntry* entry);

} // namespace secapp
