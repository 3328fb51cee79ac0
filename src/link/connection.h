#pragma once

#include "link/handler_data.h"
#include "support/text.h"

namespace secapp {

/// Opens the record's port and connects to the target. Returns 0 on success, -2 without a device name, -1
/// when the handshake fails, and the port's `linkError` when an earlier handshake on it has failed.
[[nodiscard]] int openSerialDevice(HandlerData& record);

/// Reports on standard error that a port whose handshake has failed is not opened again.
void reportEarlierFailure();

// Lower-level functions.

/// The handshake on the record's open port: asks the target to print a number until that number is received.
/// On failure the port is closed and marked with `linkError`.
[[nodiscard]] ErrorText getControl(HandlerData& record);

/// Reads and drops the bytes that wait on the port.
void flush(const HandlerData& record);

} // namespace secapp
