#include "transfer/download.h"

#include "link/timing.h"
#include "transfer/encoders.h"
#include "transfer/image_checksum.h"

#include <algorithm>
#include <cinttypes>
#include <span>
#include <vector>

namespace secapp {
namespace {

ErrorText invokeCallback(HandlerData& record, BufferFullCallback callback, TransferDescriptor& descriptor,
                         std::uint32_t staged, std::uint32_t address) {
    descriptor.bytesStaged = staged;
    descriptor.baseAddress = address;
    return callback(record, descriptor);
}

void reportTransfer(HandlerData& record, const char* label, std::int64_t total, std::uint32_t address,
                    Clock::duration elapsed) {
    const auto seconds = static_cast<float>(secondsOf(elapsed));
    const float rate = static_cast<float>(total) / seconds / 1024.0F;
    show(record, formatText("\n%s %" PRId64 " bytes to 0x%x in %.3fs (%.3fKB/sec)\n", label, total, address,
                            static_cast<double>(seconds), static_cast<double>(rate)));
}

/// Whether a file of known size has been read to its end. A pipe and a fill end with a read that returns
/// nothing.
bool isReadToEnd(const TransferSource& source) {
    if (source.stream == nullptr || !source.fileSize)
        return false;
    const int next = std::fgetc(source.stream);
    return next == EOF || std::ungetc(next, source.stream) == EOF;
}

/// Fails if the file yields more bytes than its size at opening or, at the end, if it yielded fewer, was
/// changed or cannot be read: success means that the target has the whole image.
ErrorText checkSource(const TransferSource& source, std::int64_t total, bool atEnd) {
    if (source.stream == nullptr)
        return std::nullopt;
    const std::int64_t expected = source.fileSize.value_or(total);
    const bool isChanged = source.fileState && source.fileState != fileState(source.stream);
    if (total > expected || (atEnd && (total < expected || isChanged || std::ferror(source.stream) != 0)))
        return formatError("The file changed or could not be read to its end (%" PRId64 " bytes expected)",
                           expected);
    return std::nullopt;
}

} // namespace

ErrorText download(HandlerData& record, TransferSource& source, std::uint32_t address,
                   BufferFullCallback callback, TransferDescriptor& descriptor, const char* label) {
    const TimePoint start = Clock::now();
    const BufferEncoder& encoder = getBufferEncoder();
    std::vector<std::uint8_t> chunk;
    std::uint32_t staged = 0;
    std::int64_t total = 0;
    for (bool atEnd = false; !atEnd;) {
        const std::int64_t count = readBuffer(chunk, descriptor.bufferSize, source);
        total += std::max(count, std::int64_t{0});
        // Checked before the last data are sent; later changes of the file do not matter.
        atEnd = count <= 0 || isReadToEnd(source);
        if (ErrorText error = checkSource(source, total, atEnd))
            return error;
        if (count <= 0)
            break;
        const std::span data = std::span(chunk).first(static_cast<std::size_t>(count));
        if (staged == 0) {
            if (ErrorText error = patchChecksum(record, descriptor.checksumMode, address, data))
                return error;
        }
        if (staged % descriptor.bufferSize == 0) {
            if (ErrorText error = invokeCallback(record, callback, descriptor, staged, address))
                return error;
        }
        if (ErrorText error = encoder.encode(record, descriptor, staged, data))
            return error;
    }
    if (ErrorText error = invokeCallback(record, callback, descriptor, staged, address))
        return error;
    reportTransfer(record, label, total, address, Clock::now() - start);
    record.response = std::string();
    return std::nullopt;
}

} // namespace secapp
