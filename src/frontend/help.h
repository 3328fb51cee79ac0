#pragma once

#include <cstdint>

namespace secapp {

/// Prints the help to standard output, the target's command list included when it can be had, and ends the
/// program with the given status. Without a device name (null) the only USB serial port is asked.
[[noreturn]] void usage(const char* programName, bool advanced, int status, const char* deviceName);

/// The basic help with status 0.
[[noreturn]] void display_usage(const char* deviceName);

// What these are made of.

/// The commands that the tool implements itself.
void displayHandlerHelp();

/// The commands that the target implements; a message on standard error when they cannot be had.
void target_usage(const char* deviceName, bool advanced);

} // namespace secapp
