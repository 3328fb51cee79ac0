#pragma once

#include "link/handler_data.h"
#include "support/text.h"

namespace secapp {

/// Opens the record's device and gains control of the target. Returns 0 on success, -2 without a device name,
/// -1 when the target does not synchronise, and the port's `linkError` when an earlier attempt on it has
/// failed.
[[nodiscard]] int openSerialDevice(HandlerData& record);

/// Says on standard error that nothing more is done on a port whose opening has failed.
void reportEarlierFailure();

// What these are made of.

/// Asks the target, on the record's open port, to print a number until that number comes back. On failure the
/// port is restored and closed and is marked with `linkError`.
[[nodiscard]] ErrorText getControl(HandlerData& record);

/// Reads and drops what waits on the port.
void flush(const HandlerData& record);

} // namespace secapp
