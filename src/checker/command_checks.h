#pragma once

#include "checker/inspection.h"

namespace secapp {

/// Looks at one command. What the variables of a command are missing makes everything else about it unknown.
void checkCommand(Inspection& inspection, const CheckedCommand& command);

} // namespace secapp
