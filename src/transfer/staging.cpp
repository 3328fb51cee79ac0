#include "transfer/staging.h"

#include "link/protocol.h"
#include "support/streams.h"

#include <algorithm>
#include <new>

namespace secapp {
namespace {

/// A file is read in pieces of this size, so that the memory used depends on the file and not on the buffer
/// size that the target reports.
constexpr std::size_t readPiece = std::size_t{1} << 16;

std::int32_t maxTransferBufferSize = -1;

ErrorText commitPages(HandlerData& record, TransferDescriptor& descriptor) {
    const char* command = descriptor.operation == Operation::verify ? "verifyPage" : "programPage";
    const std::uint32_t address = descriptor.baseAddress + descriptor.bytesCommitted;
    const std::uint32_t staged = descriptor.bytesStaged - descriptor.bytesCommitted;
    const std::uint32_t pages = (staged + descriptor.pageSize - 1) / descriptor.pageSize;
    descriptor.bytesCommitted = descriptor.bytesStaged;
    if (ErrorText error = sendCommand(record, formatText("%s %x %x", command, address, pages)))
        return error;
    stdProgressHandler(record);
    return std::nullopt;
}

} // namespace

std::int64_t readBuffer(std::vector<std::uint8_t>& chunk, std::uint32_t count, TransferSource& source) {
    if (source.stream == nullptr) {
        // Zeros, because the bytes of an incomplete last value are not written; one value may extend beyond
        // the count.
        const std::uint64_t size =
            std::uint64_t{std::min(count, source.fillRemaining)} + sizeof source.fillValue;
        if (size > chunk.max_size())
            throw std::bad_alloc();
        chunk.assign(static_cast<std::size_t>(size), 0);
        return fillBuffer(chunk, count, source);
    }
    std::size_t filled = 0;
    while (filled < count) {
        const std::size_t wanted = std::min<std::size_t>(count - filled, readPiece);
        chunk.resize(std::max(chunk.size(), filled + wanted));
        const std::size_t got = std::fread(chunk.data() + filled, 1, wanted, source.stream);
        filled += got;
        if (got < wanted)
            break;
    }
    return static_cast<std::int64_t>(filled);
}

std::int64_t fillBuffer(std::span<std::uint8_t> buffer, std::uint32_t count, TransferSource& source) {
    const std::uint32_t width = source.fillWidth;
    const bool isTooLong = source.fillRemaining > INT32_MAX;
    if (width != 1 && width != 2 && width != 4)
        return -1;
    const std::uint64_t rounded = (std::uint64_t{count} + width - 1) / width * width;
    const auto produced = static_cast<std::uint32_t>(std::min<std::uint64_t>(rounded, source.fillRemaining));
    const std::size_t wholeValues = std::min<std::size_t>(produced - produced % width, buffer.size());
    for (std::size_t at = 0; at < wholeValues; ++at)
        buffer[at] = static_cast<std::uint8_t>(source.fillValue >> (8 * (at % width)));
    source.fillRemaining -= produced;
    return isTooLong ? -1 : std::int64_t{produced};
}

ErrorText downloadBufferOverflowCallback(HandlerData& record, TransferDescriptor& descriptor) {
    stdProgressHandler(record);
    return clearTargetBuffer(record, descriptor);
}

ErrorText commonBufferOverflowCallback(HandlerData& record, TransferDescriptor& descriptor) {
    if (descriptor.bytesStaged == 0) {
        descriptor.bytesCommitted = 0;
    } else if (descriptor.bytesStaged != descriptor.bytesCommitted) {
        if (ErrorText error = commitPages(record, descriptor))
            return error;
    }
    return clearTargetBuffer(record, descriptor);
}

ErrorText clearTargetBuffer(HandlerData& record, const TransferDescriptor& descriptor) {
    return sendCommand(record, formatText("dataSet %x %x", descriptor.bufferSize / 4, descriptor.fillByte));
}

void stdProgressHandler(HandlerData& /*record*/) {
    writeText(stderr, ".");
}

void setMaxTransferBufferSize(std::uint32_t bytes) {
    maxTransferBufferSize = static_cast<std::int32_t>(bytes);
}

std::int32_t getMaxTransferBufferSize() {
    if (maxTransferBufferSize < 0)
        maxTransferBufferSize = 0;
    return maxTransferBufferSize;
}

} // namespace secapp
