#include "commands/flash_operations.h"

#include "commands/passthrough.h"
#include "link/protocol.h"
#include "link/timing.h"
#include "support/scope.h"
#include "transfer/download.h"
#include "transfer/staging.h"

#include <cinttypes>

namespace secapp {
namespace {

constexpr std::size_t blankCheckLineLimit = 255;

/// Erases with the time-out of an erase, and a progress dot each second.
ErrorText eraseWithoutTimeout(HandlerData& record, std::uint64_t address) {
    const AtScopeEnd restore([timeout = getTimeoutms(), period = setReadlineEchoPeriod(1)] {
        setReadlineEchoPeriod(period);
        setTimeoutms(timeout);
    });
    setTimeoutms(getEraseTimeoutms());
    return sendCommand(record, formatText("eraseFlash %" PRIx64, address));
}

ErrorText erase(HandlerData& record, const FlashTarget& target) {
    const TimePoint start = Clock::now();
    show(record, formatText("Erasing %s ", target.item.c_str()));
    ErrorText error = eraseWithoutTimeout(record, target.address);
    show(record, formatText("... completed in %.3fs\n", secondsOf(Clock::now() - start)));
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
    if (target.source.stream != nullptr)
        std::rewind(target.source.stream);
    const char* label = descriptor.operation == Operation::verify ? "Verified" : "Programmed";
    return download(record, target.source, static_cast<std::uint32_t>(target.address),
                    commonBufferOverflowCallback, descriptor, label);
}

} // namespace

ErrorText runFlashOperation(HandlerData& record, TransferDescriptor& descriptor, FlashTarget& target) {
    switch (descriptor.operation) {
    case Operation::erase:
        return erase(record, target);
    case Operation::blankCheck:
        return blankCheck(record, target);
    default:
        return transfer(record, descriptor, target);
    }
}

} // namespace secapp
