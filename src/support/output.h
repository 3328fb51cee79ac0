#pragma once

namespace secapp {

/// Makes sure that the three standard streams exist, so that no file or port opened later is taken for one of
/// them.
void openStandardStreams();

/// Ends the program with the status, once standard output is written out. A success whose output could not be
/// written is reported on standard error and ends with status 255.
[[noreturn]] void finish(int status);

} // namespace secapp
