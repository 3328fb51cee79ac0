#pragma once

#include "text.h"

#include <csignal>
#include <sys/types.h>
#include <vector>

namespace vqxsim {

/// The command that the simulator runs.
struct Child {
    pid_t id = 0;            ///< 0: none, or it has ended
    bool signalSent = false; ///< a signal was sent to it
    int exitStatus = 0; ///< of the ended command: its own, or 128 and the number of the signal that ended it;
                        ///< of one that could not be started: 126, or 127 when it was not found
};

/// Starts the command, each "{}" in its words replaced by `device`, with the signal mask `mask`. Fails with a
/// text for the user.
[[nodiscard]] ErrorText startChild(Child& child, std::vector<std::string> words, const std::string& device,
                                   const sigset_t& mask);

/// Returns true once, when the command has ended.
[[nodiscard]] bool hasEnded(Child& child);

/// Sends the first signal to the running command; returns false for every further signal and if none runs.
[[nodiscard]] bool sendSignal(Child& child, int signal);

} // namespace vqxsim
