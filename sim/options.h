#pragma once

#include "link.h"

namespace vqxsim {

/// What the command line asks for.
enum class Action { serve, showHelp, showVersion };

/// The command line of the simulator.
struct Options {
    Action action = Action::serve;
    FirmwareConfig firmware;
    LinkSpeed speed;
    std::vector<Fault> faults;
    std::uint64_t seed = 1;           ///< of everything random in the faults
    std::string log;                  ///< file for the conversation, empty for none
    bool noFlash = false;             ///< the target has no regions
    std::string link;                 ///< symbolic link to the device, empty for none
    std::vector<std::string> command; ///< program to run and its arguments, empty for none
};

/// Reads the command line into `options`. Fails with a text for the user.
[[nodiscard]] ErrorText readOptions(int argc, char** argv, Options& options);

/// The help text.
[[nodiscard]] std::string helpText();

} // namespace vqxsim
