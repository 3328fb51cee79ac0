#pragma once

#include "firmware/firmware.h"
#include "port/link.h"

namespace vqxsim {

/// What a run of the simulated target is made of.
struct Service {
    FirmwareConfig firmware;
    LinkSpeed speed;
    std::vector<Fault> faults;
    std::uint64_t seed = 1;           ///< of everything random in the faults
    std::string log;                  ///< file for the conversation, empty for none
    std::string link;                 ///< symbolic link to the device, empty for none
    std::vector<std::string> command; ///< program to run and its arguments, empty for none
};

/// Serves the simulated target until a signal or the end of the command; `status` is the exit status of the
/// program. Fails before it serves when device, link, memory or command cannot be had.
[[nodiscard]] ErrorText serve(const Service& service, int& status);

} // namespace vqxsim
