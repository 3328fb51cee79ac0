#pragma once

#include "checker/inspection.h"
#include "frontend/variables.h"

#include <cstdio>

namespace secapp {

struct ScriptReport {
    /// In the order of the lines.
    std::vector<Finding> findings;
    /// The files that the commands name, as written.
    std::vector<std::string> files;
    /// Why `files` may be incomplete: commands with variables that have no value.
    std::vector<Finding> unknownFiles;
};

/// Reads a script as a run does that begins with these variables, but without a board.
[[nodiscard]] ScriptReport checkScript(std::FILE* stream, const Variables& variables);

} // namespace secapp
