#pragma once

#include <cstdint>

namespace secapp {

/// Prints the help to standard output, with the target's command list if the target answers, and ends the
/// program with the given status. Without a device name (null) it asks the target on the only USB serial
/// port.
[[noreturn]] void usage(const char* programName, bool advanced, int status, const char* deviceName);

/// The basic help with status 0.
[[noreturn]] void display_usage(const char* deviceName);

/// Prints the commands that `secapp` implements itself.
void displayHandlerHelp();

/// Prints the commands that the target implements, or a message on standard error if it does not answer.
void target_usage(const char* deviceName, bool advanced);

} // namespace secapp
