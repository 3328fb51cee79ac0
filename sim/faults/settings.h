#pragma once

#include "faults/kinds.h"
#include "firmware/firmware.h"

namespace vqxsim {

/// Reads "KIND[,setting=value...]" into `fault`. Fails with a text for the user.
[[nodiscard]] ErrorText readFault(std::string_view text, Fault& fault);

/// Fails if the fault can never occur with this firmware.
[[nodiscard]] ErrorText checkFault(const Fault& fault, const FirmwareConfig& firmware);

/// The table of kinds and their settings, for the help text.
[[nodiscard]] std::string faultHelp();

} // namespace vqxsim
