#pragma once

#include "link/handler_data.h"
#include "support/text.h"
#include "transfer/records.h"

#include <cstdint>
#include <span>
#include <vector>

namespace secapp {

/// Called by the transfer loop at every boundary of the target's transfer buffer, including the start and the
/// end of the transfer.
using BufferFullCallback = ErrorText (*)(HandlerData& record, TransferDescriptor& descriptor);

/// Reads up to `count` bytes of the source to the start of `chunk`, which grows as needed. Returns the
/// number of bytes read; 0 or less at the end of the data.
[[nodiscard]] std::int64_t readBuffer(std::vector<std::uint8_t>& chunk, std::uint32_t count,
                                      TransferSource& source);

/// Resets the target's transfer buffer.
[[nodiscard]] ErrorText downloadBufferOverflowCallback(HandlerData& record, TransferDescriptor& descriptor);

/// Has the target program or verify the pages staged since the last call, then resets its transfer buffer.
[[nodiscard]] ErrorText commonBufferOverflowCallback(HandlerData& record, TransferDescriptor& descriptor);

/// The most bytes in one burst as set by the user; below 1 the command's default applies. A negative value
/// (not set) becomes 0 when it is read.
void setMaxTransferBufferSize(std::uint32_t bytes);
[[nodiscard]] std::int32_t getMaxTransferBufferSize();

/// Writes the next bytes of a fill to `buffer`: `count`, rounded up to a multiple of the fill width, or what
/// remains of a shorter fill. Returns their number, or -1 for a bad width or when 2^31 bytes or more remained
/// before the call. The bytes of an incomplete last value are counted but not written. `buffer` must not be
/// shorter than that number.
[[nodiscard]] std::int64_t fillBuffer(std::span<std::uint8_t> buffer, std::uint32_t count,
                                      TransferSource& source);

/// Has the target fill the part of its transfer buffer that is in use with the fill byte.
[[nodiscard]] ErrorText clearTargetBuffer(HandlerData& record, const TransferDescriptor& descriptor);

/// Writes a progress dot to standard error.
void stdProgressHandler(HandlerData& record);

} // namespace secapp
