#pragma once

#include "firmware/firmware.h"
#include "port/link.h"

namespace vqxsim {

/// The configuration of a run of the simulated target.
struct Service {
    FirmwareConfig firmware;
    LinkSpeed speed;
    std::vector<Fault> faults;
    std::uint64_t seed = 1;           ///< of the random faults
    std::string log;                  ///< file for the conversation, empty for none
    std::string link;                 ///< symbolic link to the device, empty for none
    std::vector<std::string> command; ///< program to run and its arguments, empty for none
};

/// Serves the simulated target until a signal or the end of the command; `status` is the exit status of the
/// program. Fails at the start if the device, the link, a memory, the log or the command cannot be
/// opened or started.
[[nodiscard]] ErrorText serve(const Service& service, int& status);

} // namespace vqxsim
