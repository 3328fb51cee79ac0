#pragma once

#include "checker/inspection.h"

namespace secapp {

/// Records what "program" programs, and removes what "verify" verifies.
void trackVerification(Inspection& inspection, const CheckedCommand& command);

/// Reports what no "verify" follows, at the end of the script.
void reportUnverified(Inspection& inspection);

} // namespace secapp
