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
    /// Why `files` may be incomplete: commands with undefined variables.
    std::vector<Finding> unknownFiles;
};

/// Checks a script that starts with these variables. Needs no board and opens no port. `isUnattended`: no
/// user answers the script.
[[nodiscard]] ScriptReport checkScript(std::FILE* stream, const Variables& variables, bool isUnattended);

} // namespace secapp
