#include "commands/flash_arguments.h"

#include "commands/expressions.h"
#include "commands/flash_operations.h"
#include "support/echo.h"
#include "support/file.h"
#include "support/streams.h"
#include "transfer/image_checksum.h"
#include "transfer/staging.h"

#include <cinttypes>

namespace secapp {
namespace {

/// A command line as read, before it meets the target's regions.
struct FlashRequest {
    std::string command;
    std::uint32_t fillWidth = 4;
    std::uint32_t fillValue = 0;
    std::optional<MeasuredFile> image;
    /// The file, the fill value or, without either, the address as typed.
    std::string imageName;
    std::optional<std::string> addresses;
    std::optional<std::string> length;
};

std::uint32_t operationOf(std::string_view word) {
    if (equalsIgnoringCase(word, "verify"))
        return operationVerify;
    if (equalsIgnoringCase(word, "erase"))
        return operationErase;
    if (equalsIgnoringCase(word, "blankCheck"))
        return operationBlankCheck;
    return operationProgram;
}

bool takesData(std::uint32_t operation) {
    return operation == operationProgram || operation == operationVerify;
}

/// Applies one option word; false when there is no such option.
bool applyOption(std::string_view option, FlashRequest& request, std::uint32_t& checksumMode) {
    if (equalsIgnoringCase(option, "+i"))
        checksumMode = checksumFromTarget;
    else if (equalsIgnoringCase(option, "+c"))
        checksumMode = checksumCalculate;
    else if (equalsIgnoringCase(option, "+w1"))
        request.fillWidth = 1;
    else if (equalsIgnoringCase(option, "+w2"))
        request.fillWidth = 2;
    else if (equalsIgnoringCase(option, "+w4"))
        request.fillWidth = 4;
    else
        return false;
    return true;
}

/// Takes the option words off the line and then the first word behind them.
ErrorText readOptions(std::string_view& line, FlashRequest& request, std::uint32_t& checksumMode,
                      std::optional<std::string_view>& firstWord) {
    for (firstWord = nextWord(line); firstWord && firstWord->front() == '+'; firstWord = nextWord(line)) {
        if (!applyOption(*firstWord, request, checksumMode))
            return formatError("Unknown option '%s' for command %s", std::string(*firstWord).c_str(),
                               request.command.c_str());
    }
    return std::nullopt;
}

ErrorText openImage(FlashRequest& request) {
    request.image = openMeasuredFile(request.imageName);
    if (!request.image)
        return formatError("Cannot open %s file '%s'", request.command.c_str(), request.imageName.c_str());
    debug_print("File %s has size 0x%" PRIx64, request.imageName.c_str(),
                static_cast<std::uint64_t>(request.image->size));
    return std::nullopt;
}

/// Reads the file or fill value and, with a fill, evaluates it.
ErrorText readData(HandlerData& record, TransferDescriptor& descriptor, FlashRequest& request) {
    if (!isNumeric(request.imageName))
        return openImage(request);
    std::uint64_t value = 0;
    if (ErrorText error = evaluateExpression(record, descriptor.flashList, request.imageName, value))
        return error;
    request.fillValue = static_cast<std::uint32_t>(value);
    return std::nullopt;
}

std::optional<std::string> copyOf(std::optional<std::string_view> word) {
    return word ? std::optional<std::string>(*word) : std::nullopt;
}

ErrorText readRequest(HandlerData& record, std::string_view line, const HandlerEntry* entry,
                      TransferDescriptor& descriptor, FlashRequest& request) {
    std::optional<std::string_view> word;
    if (ErrorText error = readOptions(line, request, descriptor.checksumMode, word))
        return error;
    const char* command = request.command.c_str();
    request.imageName = word.value_or("");
    if (takesData(descriptor.operation)) {
        if (!word)
            return formatError("%s: Missing filename or fill_value %s", command, commandUsage(entry).c_str());
        if (ErrorText error = readData(record, descriptor, request))
            return error;
        word = nextWord(line);
    }
    request.addresses = copyOf(word);
    request.length = copyOf(nextWord(line));
    if (!request.image && descriptor.checksumMode != checksumNone)
        return formatError("Checksum option not valid for fill operations");
    if (!request.addresses)
        return formatError("%s: Missing address %s", command, commandUsage(entry).c_str());
    return std::nullopt;
}

/// Finds the region of an address: the last one in the list that contains it and holds the image.
ErrorText findRegion(const FlashList& list, const FlashRequest& request, const FlashTarget& target,
                     const FlashRegion*& region) {
    const auto address = static_cast<std::int64_t>(target.address);
    const std::int64_t imageSize = request.image ? request.image->size : 0;
    const auto imageEnd = static_cast<std::uint32_t>(target.address + static_cast<std::uint64_t>(imageSize));
    const FlashRegion* containing = nullptr;
    region = nullptr;
    for (const FlashRegion& candidate : list.regions) {
        debug_print("Name=%s, Size=0x%x, Base=0x%x, Page=0x%x, Blank=0x%x", candidate.name.c_str(),
                    candidate.size, candidate.base, candidate.pageSize, candidate.blankValue);
        const std::uint32_t end = candidate.base + candidate.size;
        if (address < candidate.base || address >= end)
            continue;
        containing = &candidate;
        if (imageSize <= UINT32_MAX && imageEnd <= end)
            region = &candidate;
    }
    if (region != nullptr)
        return std::nullopt;
    if (containing == nullptr)
        return formatError("No matching memory found %s (0x%" PRIx64 ")", target.item.c_str(),
                           target.address);
    return formatError(
        "Binary image %s (size %" PRId64 ") is too large for memory %s (0x%" PRIx64 ", size %" PRIu32 ")",
        request.imageName.c_str(), imageSize, target.item.c_str(), target.address, containing->size);
}

ErrorText checkPlacement(const FlashRegion& region, const TransferDescriptor& descriptor,
                         const FlashRequest& request, const FlashTarget& target) {
    if (region.pageSize == 0)
        return formatError("Memory %s has no page size", region.name.c_str());
    if (static_cast<std::int64_t>(target.address) % region.pageSize != 0)
        return formatError("Memory base address %s (0x%" PRIx64 ") is not page aligned (PageSize=0x%x)",
                           target.item.c_str(), target.address, region.pageSize);
    if (descriptor.checksumMode == checksumNone)
        return std::nullopt;
    if (descriptor.checksumMode == checksumFromTarget && descriptor.operation == operationProgram)
        return formatError("Cannot use checksum ignore option with %s command", request.command.c_str());
    if (target.address != region.base)
        return formatError(
            "Checksum options may only be used when address is at the start of a flash region");
    return std::nullopt;
}

/// Takes the sizes of the transfer from its region.
void setSizes(const FlashRegion& region, TransferDescriptor& descriptor) {
    descriptor.regionSize = region.size;
    descriptor.pageSize = region.pageSize;
    descriptor.bufferSize = region.pageSize;
    if (region.bufferSize % region.pageSize != 0)
        writeText(stderr,
                  formatText("Warning: Internal issue. Buffersize not a multiple of page size (%d and %d). "
                             "Ignoring Buffersize\n",
                             static_cast<int>(region.bufferSize), static_cast<int>(region.pageSize)));
    else if (region.bufferSize != 0)
        descriptor.bufferSize = region.bufferSize;
    const std::int32_t limit = getMaxTransferBufferSize();
    descriptor.burstSize = limit > 0 ? static_cast<std::uint32_t>(limit) : descriptor.bufferSize;
    descriptor.fillByte = region.blankValue;
}

/// Whether the data can be cut into chunks of the transfer's buffer: a fill must begin anew with each chunk,
/// and the check word lies in the first.
ErrorText checkChunks(const TransferDescriptor& descriptor, const FlashRequest& request,
                      const FlashRegion& region) {
    const std::uint32_t buffer = descriptor.bufferSize;
    if (descriptor.checksumMode != checksumNone)
        return checkChunkSize(buffer, request.image->size);
    const bool fits = buffer % request.fillWidth == 0 || request.fillWidth % buffer == 0;
    if (fits || request.image || !takesData(descriptor.operation))
        return std::nullopt;
    return formatError("Fill width %" PRIu32 " does not fit the buffer of memory %s (%" PRIu32 " bytes)",
                       request.fillWidth, region.name.c_str(), buffer);
}

ErrorText setSource(HandlerData& record, TransferDescriptor& descriptor, const FlashRequest& request,
                    const FlashRegion& region, FlashTarget& target) {
    // A fill without a length reaches to the end of the region.
    std::uint64_t length = region.size - (target.address - region.base);
    if (request.length) {
        if (ErrorText error = evaluateExpression(record, descriptor.flashList, *request.length, length))
            return error;
    }
    if (request.image)
        target.source = {.stream = request.image->stream.get(),
                         .fileSize = request.image->size,
                         .fileState = request.image->state};
    else
        target.source = {.fillValue = request.fillValue,
                         .fillRemaining = static_cast<std::uint32_t>(length),
                         .fillWidth = request.fillWidth};
    return std::nullopt;
}

ErrorText runAt(HandlerData& record, std::string_view item, const FlashRequest& request,
                TransferDescriptor& descriptor) {
    FlashTarget target;
    target.item = item;
    if (ErrorText error = evaluateExpression(record, descriptor.flashList, item, target.address))
        return error;
    const FlashRegion* region = nullptr;
    if (ErrorText error = findRegion(*descriptor.flashList, request, target, region))
        return error;
    if (ErrorText error = checkPlacement(*region, descriptor, request, target))
        return error;
    setSizes(*region, descriptor);
    if (ErrorText error = checkChunks(descriptor, request, *region))
        return error;
    if (ErrorText error = setSource(record, descriptor, request, *region, target))
        return error;
    return runFlashOperation(record, descriptor, target);
}

} // namespace

ErrorText programVerifyEraseHandler(HandlerData& record, std::string_view text, std::string_view word,
                                    const HandlerEntry* entry) {
    FlashRequest request;
    request.command = word;
    TransferDescriptor descriptor;
    descriptor.operation = operationOf(word);
    if (ErrorText error = readRequest(record, argumentWords(text), entry, descriptor, request))
        return error;
    if (ErrorText error = getFlashInfo(record, descriptor.flashList))
        return error;

    const bool everywhere = equalsIgnoringCase(*request.addresses, "all");
    const std::string addresses = everywhere ? buildListOfFlashes(*descriptor.flashList) : *request.addresses;
    std::string_view rest = addresses;
    while (const std::optional<std::string_view> item = nextPiece(rest, ","))
        if (ErrorText error = runAt(record, *item, request, descriptor))
            return error;
    return std::nullopt;
}

} // namespace secapp
