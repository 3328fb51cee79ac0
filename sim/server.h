#pragma once

#include "options.h"

namespace vqxsim {

/// Serves the simulated target until a signal or the end of the command; the result is the exit status of the
/// program. Fails before it serves when device, link, memory or command cannot be had.
[[nodiscard]] ErrorText serve(const Options& options, int& status);

} // namespace vqxsim
