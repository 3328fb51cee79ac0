#include "commands/flash_operations.h"

#include "commands/passthrough.h"
#include "link/protocol.h"
#include "link/timing.h"
#include "transfer/download.h"
#include "transfer/staging.h"

namespace secapp {
namespace {

constexpr std::size_t blankCheckLineLimit = 255;

void show(HandlerData& record, const std::string& text) {
    if (record.outputHandler != nullptr)
        record.outputHandler(record, text, false);
}

ErrorText erase(HandlerData& record, const FlashTarget& target) {
    const timeval start = currentTime();
    show(record, formatText("Erasing %s ", target.item.c_str()));
    const std::int32_t timeout = getTimeoutms();
    setTimeoutms(getEraseTimeoutms());
    const std::int32_t period = setReadlineEchoPeriod(1);
    ErrorText error =
        exchange(record, formatText("eraseFlash %lx", static_cast<unsigned long>(target.address)));
    setReadlineEchoPeriod(period);
    setTimeoutms(timeout);
    const timeval elapsed = elapsedSince(start);
    show(record,
         formatText("... completed in %.3fs\n",
                    static_cast<double>(elapsed.tv_sec) + static_cast<double>(elapsed.tv_usec) / 1000000.0));
    return error;
}

ErrorText blankCheck(HandlerData& record, const FlashTarget& target) {
    constexpr const char* command = "blankCheck";
    const std::string line = formatText("%s %s", command, target.item.c_str());
    if (line.size() > blankCheckLineLimit)
        return formatError("Address too long: '%s'", target.item.c_str());
    return genericHandlerWithAddressParser(record, line, command, nullptr);
}

ErrorText transfer(HandlerData& record, TransferDescriptor& descriptor, FlashTarget& target) {
    if (target.image != nullptr)
        std::rewind(target.image->stream.get());
    const char* label = descriptor.operation == operationVerify ? "Verified" : "Programmed";
    if (ErrorText error = download(record, target.source, static_cast<std::uint32_t>(target.address),
                                   commonBufferOverflowCallback, descriptor, label))
        return error;
    // Success must mean that the target holds the whole image.
    if (target.image != nullptr && !wasReadWhole(*target.image))
        return formatError("The file changed or could not be read to its end (%ld bytes expected)",
                           static_cast<long>(target.image->size));
    return std::nullopt;
}

} // namespace

ErrorText runFlashOperation(HandlerData& record, TransferDescriptor& descriptor, FlashTarget& target) {
    switch (descriptor.operation) {
    case operationErase:
        return erase(record, target);
    case operationBlankCheck:
        return blankCheck(record, target);
    default:
        return transfer(record, descriptor, target);
    }
}

} // namespace secapp
