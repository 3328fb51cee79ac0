#pragma once

#include "checker/inspection.h"

namespace secapp {

/// Checks one command. If it uses an undefined variable, reports only that.
void checkCommand(Inspection& inspection, const CheckedCommand& command);

/// Checks a definition "name=value", with both parts.
void checkDefinition(Inspection& inspection, std::string_view definition);

} // namespace secapp
