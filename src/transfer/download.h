#pragma once

#include "link/handler_data.h"
#include "support/text.h"
#include "transfer/records.h"
#include "transfer/staging.h"

#include <cstdint>

namespace secapp {

/// Sends all data of the source to the target, chunk by chunk through the selected encoder, and calls
/// `callback` before every chunk that starts at a buffer boundary and once at the end. `address` is the
/// target address of the first byte, `label` the first word of the result line that goes to the output
/// handler. On success the record's response is released. Returns the first error; then nothing more is sent.
[[nodiscard]] ErrorText download(HandlerData& record, TransferSource& source, std::uint32_t address,
                                 BufferFullCallback callback, TransferDescriptor& descriptor,
                                 const char* label);

} // namespace secapp
