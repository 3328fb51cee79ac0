#pragma once

#include "port/server.h"

namespace vqxsim {

/// The action that the command line selects.
enum class Action { serve, showHelp, showVersion };

/// The command line of the simulator.
struct Options {
    Action action = Action::serve;
    bool noFlash = false; ///< the target has no memories
    std::string board;    ///< file with a board's answer to queryFlash, empty for none
    Service service;
};

/// Reads the command line into `options`. Fails with a text for the user.
[[nodiscard]] ErrorText readOptions(int argc, char** argv, Options& options);

/// The help text.
[[nodiscard]] std::string helpText();

} // namespace vqxsim
