#pragma once

#include "checker/inspection.h"

namespace secapp {

/// Records data that "program" programs, and removes data that "verify" verifies.
void trackVerification(Inspection& inspection, const CheckedCommand& command);

/// At the end of the script, reports data without a later "verify".
void reportUnverified(Inspection& inspection);

} // namespace secapp
