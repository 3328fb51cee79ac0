#pragma once

#include "link/handler_data.h"
#include "support/text.h"
#include "transfer/records.h"

#include <cstdint>
#include <span>
#include <vector>

namespace secapp {

/// The transfer loop calls it at every boundary of the target's transfer buffer, including the start and the
/// end.
using BufferFullCallback = ErrorText (*)(HandlerData& record, TransferDescriptor& descriptor);

/// Reads up to `count` bytes of the source to the start of `chunk`, which grows as the data need it. Returns
/// the bytes read; 0 or less at the end of the data.
[[nodiscard]] std::int64_t readBuffer(std::vector<std::uint8_t>& chunk, std::uint32_t count,
                                      TransferSource& source);

/// Resets the target's transfer buffer.
[[nodiscard]] ErrorText downloadBufferOverflowCallback(HandlerData& record, TransferDescriptor& descriptor);

/// Has the target program or verify the pages staged since the last call, then resets its transfer buffer.
[[nodiscard]] ErrorText commonBufferOverflowCallback(HandlerData& record, TransferDescriptor& descriptor);

/// The limit set for transfers, in bytes; below 1 the command's default applies. A negative setting (not
/// given) becomes 0 when it is read.
void setMaxTransferBufferSize(std::uint32_t bytes);
[[nodiscard]] std::int32_t getMaxTransferBufferSize();

/// Produces the next `count` bytes of a fill, rounded up to a multiple of its width, as far as it reaches;
/// returns their number, or -1 for a bad width or when 2^31 bytes or more remained before. The bytes of an
/// incomplete last item are not written. `buffer` has room for that rounded count, or for all of a shorter
/// fill.
[[nodiscard]] std::int64_t fillBuffer(std::span<std::uint8_t> buffer, std::uint32_t count,
                                      TransferSource& source);

/// Fills the part of the target's transfer buffer in use with the fill byte.
[[nodiscard]] ErrorText clearTargetBuffer(HandlerData& record, const TransferDescriptor& descriptor);

/// Writes a progress dot to standard error.
void stdProgressHandler(HandlerData& record);

} // namespace secapp
