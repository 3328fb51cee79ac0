#pragma once

#include "link/handler_data.h"
#include "support/text.h"
#include "transfer/records.h"

#include <array>
#include <cstdint>
#include <span>

namespace secapp {

/// A way to send a chunk of data to the target's transfer buffer.
struct BufferEncoder {
    const char* name;
    /// Sends the chunk to the start of the target's transfer buffer, and adds the bytes sent to
    /// `bytesStaged`, the running count of the transfer. Stops at the first error of the target or the link.
    ErrorText (*encode)(HandlerData& record, const TransferDescriptor& descriptor, std::uint32_t& bytesStaged,
                        std::span<const std::uint8_t> chunk);
};

/// All encoders, by the index that selects them.
extern const std::array<BufferEncoder, 2> bufferEncoder;

/// Selects the encoder of the run. An index without an encoder ends the program with status 255.
void setBufferEncodeAlgorithm(std::uint32_t index);
[[nodiscard]] const BufferEncoder& getBufferEncoder();

/// Writes a line for each encoder to standard output, the selected one marked.
void listEncoderAlgorithms();

/// Words per packet of the hex encoder, 1 to `maxWordsPerLine`; the front end checks the range.
inline constexpr std::uint32_t maxWordsPerLine = 64;
[[nodiscard]] std::uint32_t getWordsPerLine();
void setWordsPerLine(std::uint32_t words);

/// The sum of the data's little-endian words, the missing bytes of a partial last word counted as 0xFF.
[[nodiscard]] std::uint32_t calcChecksum(std::span<const std::uint8_t> data);

} // namespace secapp
