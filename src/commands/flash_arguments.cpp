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

/// The arguments of a command line.
struct FlashArguments {
    std::string command;
    std::uint32_t fillWidth = 4;
    std::uint32_t fillValue = 0;
    std::optional<MeasuredFile> image;
    /// The file or the fill value as typed; without data, the address.
    std::string dataArgument;
    std::optional<std::string> addresses;
    std::optional<std::string> length;
};

Operation operationOf(std::string_view word) {
    if (equalsIgnoringCase(word, "verify"))
        return Operation::verify;
    if (equalsIgnoringCase(word, "erase"))
        return Operation::erase;
    if (equalsIgnoringCase(word, "blankCheck"))
        return Operation::blankCheck;
    return Operation::program;
}

bool takesData(Operation operation) {
    return operation == Operation::program || operation == Operation::verify;
}

/// Applies one option word; false when there is no such option.
bool applyFlashOption(std::string_view option, FlashArguments& arguments, ChecksumMode& checksumMode) {
    if (equalsIgnoringCase(option, "+i"))
        checksumMode = ChecksumMode::fromTarget;
    else if (equalsIgnoringCase(option, "+c"))
        checksumMode = ChecksumMode::calculate;
    else if (equalsIgnoringCase(option, "+w1"))
        arguments.fillWidth = 1;
    else if (equalsIgnoringCase(option, "+w2"))
        arguments.fillWidth = 2;
    else if (equalsIgnoringCase(option, "+w4"))
        arguments.fillWidth = 4;
    else
        return false;
    return true;
}

/// Removes the option words and the word after them from the line; returns that word, empty if there is none.
Result<std::optional<std::string_view>> takeOptions(std::string_view& line, FlashArguments& arguments,
                                                    ChecksumMode& checksumMode) {
    std::optional<std::string_view> word = nextWord(line);
    for (; word && word->front() == '+'; word = nextWord(line)) {
        if (!applyFlashOption(*word, arguments, checksumMode))
            return formatError("Unknown option '%s' for command %s", std::string(*word).c_str(),
                               arguments.command.c_str());
    }
    return word;
}

ErrorText openImage(FlashArguments& arguments) {
    const char* name = arguments.dataArgument.c_str();
    arguments.image = openMeasuredFile(arguments.dataArgument);
    if (!arguments.image)
        return formatError("Cannot open %s file '%s'", arguments.command.c_str(), name);
    debug_print("File %s has size 0x%" PRIx64, name, static_cast<std::uint64_t>(arguments.image->size));
    return std::nullopt;
}

/// Opens the file or evaluates the fill value.
ErrorText openImageOrReadValue(HandlerData& record, TransferDescriptor& descriptor,
                               FlashArguments& arguments) {
    if (!isNumeric(arguments.dataArgument))
        return openImage(arguments);
    const Result<std::uint64_t> value =
        evaluateExpression(record, descriptor.flashList, arguments.dataArgument);
    if (!value)
        return value.error();
    arguments.fillValue = static_cast<std::uint32_t>(*value);
    return std::nullopt;
}

std::optional<std::string> copyOf(std::optional<std::string_view> word) {
    return word ? std::optional<std::string>(*word) : std::nullopt;
}

ErrorText readArguments(HandlerData& record, std::string_view line, const HandlerEntry* entry,
                        TransferDescriptor& descriptor, FlashArguments& arguments) {
    const Result<std::optional<std::string_view>> firstWord =
        takeOptions(line, arguments, descriptor.checksumMode);
    if (!firstWord)
        return firstWord.error();
    const char* command = arguments.command.c_str();
    std::optional<std::string_view> word = *firstWord;
    arguments.dataArgument = word.value_or("");
    if (takesData(descriptor.operation)) {
        if (!word)
            return formatError("%s: Missing filename or fill_value %s", command, commandUsage(entry).c_str());
        if (ErrorText error = openImageOrReadValue(record, descriptor, arguments))
            return error;
        word = nextWord(line);
    }
    arguments.addresses = copyOf(word);
    arguments.length = copyOf(nextWord(line));
    if (!arguments.image && descriptor.checksumMode != ChecksumMode::none)
        return formatError("Checksum option not valid for fill operations");
    if (!arguments.addresses)
        return formatError("%s: Missing address %s", command, commandUsage(entry).c_str());
    return std::nullopt;
}

/// The memory of an address: the last one in the list that contains the address and in which the image fits.
Result<const FlashRegion*> memoryAt(const FlashList& list, const FlashArguments& arguments,
                                    const FlashDestination& destination) {
    const auto address = static_cast<std::int64_t>(destination.address);
    const std::int64_t imageSize = arguments.image ? arguments.image->size : 0;
    const auto imageEnd =
        static_cast<std::uint32_t>(destination.address + static_cast<std::uint64_t>(imageSize));
    const FlashRegion* containing = nullptr;
    const FlashRegion* fitting = nullptr;
    for (const FlashRegion& region : list.regions) {
        debug_print("Name=%s, Size=0x%x, Base=0x%x, Page=0x%x, Blank=0x%x", region.name.c_str(), region.size,
                    region.base, region.pageSize, region.blankValue);
        const std::uint32_t end = region.base + region.size;
        if (address < region.base || address >= end)
            continue;
        containing = &region;
        if (imageSize <= UINT32_MAX && imageEnd <= end)
            fitting = &region;
    }
    if (fitting != nullptr)
        return fitting;
    if (containing == nullptr)
        return formatError("No matching memory found %s (0x%" PRIx64 ")", destination.addressText.c_str(),
                           destination.address);
    return formatError("Binary image %s (size %" PRId64 ") is too large for memory %s (0x%" PRIx64
                       ", size %" PRIu32 ")",
                       arguments.dataArgument.c_str(), imageSize, destination.addressText.c_str(),
                       destination.address, containing->size);
}

ErrorText checkPlacement(const FlashRegion& region, const TransferDescriptor& descriptor,
                         const FlashArguments& arguments, const FlashDestination& destination) {
    if (region.pageSize == 0)
        return formatError("Memory %s has no page size", region.name.c_str());
    if (static_cast<std::int64_t>(destination.address) % region.pageSize != 0)
        return formatError("Memory base address %s (0x%" PRIx64 ") is not page aligned (PageSize=0x%x)",
                           destination.addressText.c_str(), destination.address, region.pageSize);
    if (descriptor.checksumMode == ChecksumMode::none)
        return std::nullopt;
    if (descriptor.checksumMode == ChecksumMode::fromTarget && descriptor.operation == Operation::program)
        return formatError("Cannot use checksum ignore option with %s command", arguments.command.c_str());
    if (destination.address != region.base)
        return formatError(
            "Checksum options may only be used when address is at the start of a flash region");
    return std::nullopt;
}

/// Sets the sizes of the transfer to those of its memory.
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

/// An error for data that cannot be cut into chunks of the transfer's buffer: each chunk starts with a whole
/// fill value, and the check word is in the first chunk.
ErrorText checkChunks(const TransferDescriptor& descriptor, const FlashArguments& arguments,
                      const FlashRegion& region) {
    const std::uint32_t buffer = descriptor.bufferSize;
    if (descriptor.checksumMode != ChecksumMode::none)
        return checkChunkSize(buffer, arguments.image->size);
    const bool fits = buffer % arguments.fillWidth == 0 || arguments.fillWidth % buffer == 0;
    if (fits || arguments.image || !takesData(descriptor.operation))
        return std::nullopt;
    return formatError("Fill width %" PRIu32 " does not fit the buffer of memory %s (%" PRIu32 " bytes)",
                       arguments.fillWidth, region.name.c_str(), buffer);
}

ErrorText setSource(HandlerData& record, TransferDescriptor& descriptor, const FlashArguments& arguments,
                    const FlashRegion& region, FlashDestination& destination) {
    // A fill without a length ends at the end of the memory.
    std::uint64_t length = region.size - (destination.address - region.base);
    if (arguments.length) {
        const Result<std::uint64_t> given =
            evaluateExpression(record, descriptor.flashList, *arguments.length);
        if (!given)
            return given.error();
        length = *given;
    }
    if (arguments.image)
        destination.source = {.stream = arguments.image->stream.get(),
                              .fileSize = arguments.image->size,
                              .fileState = arguments.image->state};
    else
        destination.source = {.fillValue = arguments.fillValue,
                              .fillRemaining = static_cast<std::uint32_t>(length),
                              .fillWidth = arguments.fillWidth};
    return std::nullopt;
}

ErrorText runAt(HandlerData& record, std::string_view item, const FlashArguments& arguments,
                TransferDescriptor& descriptor) {
    FlashDestination destination;
    destination.addressText = item;
    const Result<std::uint64_t> address = evaluateExpression(record, descriptor.flashList, item);
    if (!address)
        return address.error();
    destination.address = *address;
    const Result<const FlashRegion*> found = memoryAt(*descriptor.flashList, arguments, destination);
    if (!found)
        return found.error();
    const FlashRegion& region = **found;
    if (ErrorText error = checkPlacement(region, descriptor, arguments, destination))
        return error;
    setSizes(region, descriptor);
    if (ErrorText error = checkChunks(descriptor, arguments, region))
        return error;
    if (ErrorText error = setSource(record, descriptor, arguments, region, destination))
        return error;
    return runFlashOperation(record, descriptor, destination);
}

} // namespace

ErrorText programVerifyEraseHandler(HandlerData& record, std::string_view text, std::string_view word,
                                    const HandlerEntry* entry) {
    FlashArguments arguments;
    arguments.command = word;
    TransferDescriptor descriptor;
    descriptor.operation = operationOf(word);
    if (ErrorText error = readArguments(record, argumentWords(text), entry, descriptor, arguments))
        return error;
    if (ErrorText error = getFlashInfo(record, descriptor.flashList))
        return error;

    const bool allMemories = equalsIgnoringCase(*arguments.addresses, "all");
    const std::string addresses =
        allMemories ? buildListOfFlashes(*descriptor.flashList) : *arguments.addresses;
    std::string_view rest = addresses;
    while (const std::optional<std::string_view> item = nextPiece(rest, ","))
        if (ErrorText error = runAt(record, *item, arguments, descriptor))
            return error;
    return std::nullopt;
}

} // namespace secapp
