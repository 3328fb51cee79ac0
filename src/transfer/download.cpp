#include "transfer/download.h"

#include "link/timing.h"
#include "transfer/encoders.h"
#include "transfer/image_checksum.h"
#include "transfer/words.h"

#include <algorithm>
#include <vector>

namespace secapp {
namespace {

ErrorText callBack(HandlerData& record, BufferFullCallback callback, TransferDescriptor& descriptor,
                   std::uint32_t staged, std::uint32_t address) {
    descriptor.bytesStaged = staged;
    descriptor.baseAddress = address;
    return callback(record, descriptor);
}

/// Zeroes what follows the data up to the end of their last word, and of the part that a check word covers.
void padWithZeros(std::vector<std::uint8_t>& chunk, std::size_t length) {
    const std::size_t padded = std::max((length + wordSize - 1) / wordSize * wordSize, checkedImageSize);
    chunk.resize(std::max(chunk.size(), padded));
    std::fill(chunk.begin() + static_cast<std::ptrdiff_t>(length),
              chunk.begin() + static_cast<std::ptrdiff_t>(padded), std::uint8_t{0});
}

void reportTransfer(HandlerData& record, const char* label, std::int64_t total, std::uint32_t address,
                    const timeval& elapsed) {
    if (record.outputHandler == nullptr)
        return;
    const auto seconds = static_cast<float>(secondsOf(elapsed));
    const float rate = static_cast<float>(total) / seconds / 1024.0F;
    record.outputHandler(record,
                         formatText("\n%s %ld bytes to 0x%x in %.3fs (%.3fKB/sec)\n", label,
                                    static_cast<long>(total), address, static_cast<double>(seconds),
                                    static_cast<double>(rate)),
                         false);
}

} // namespace

ErrorText download(HandlerData& record, TransferSource& source, std::uint32_t address,
                   BufferFullCallback callback, TransferDescriptor& descriptor, const char* label) {
    const timeval start = currentTime();
    const BufferEncoder& encoder = getBufferEncoder();
    std::vector<std::uint8_t> chunk;
    std::uint32_t staged = 0;
    std::int64_t total = 0;
    for (;;) {
        const std::int64_t count = readBuffer(chunk, descriptor.bufferSize, source);
        if (count <= 0)
            break;
        const auto length = static_cast<std::size_t>(count);
        padWithZeros(chunk, length);
        if (staged == 0) {
            if (ErrorText error = patchChecksum(record, descriptor.checksumMode, address, chunk))
                return error;
        }
        total += count;
        if (staged % descriptor.bufferSize == 0) {
            if (ErrorText error = callBack(record, callback, descriptor, staged, address))
                return error;
        }
        if (ErrorText error = encoder.encode(record, descriptor, staged, std::span(chunk).first(length)))
            return error;
    }
    if (ErrorText error = callBack(record, callback, descriptor, staged, address))
        return error;
    reportTransfer(record, label, total, address, elapsedSince(start));
    record.response = std::string();
    return std::nullopt;
}

} // namespace secapp
