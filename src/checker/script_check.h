#pragma once

#include "checker/inspection.h"
#include "frontend/variables.h"

#include <cstdio>

namespace secapp {

/// Reads a script as a run does that begins with these variables, but without a board. Returns what the run
/// would read otherwise than it looks, by line.
[[nodiscard]] std::vector<Finding> checkScript(std::FILE* stream, const Variables& variables);

} // namespace secapp
