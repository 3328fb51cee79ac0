#pragma once

namespace secapp {

/// Forgets all script variables.
void forgetVariables();

} // namespace secapp
