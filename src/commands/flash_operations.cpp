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

/// The longest "blankCheck" command line, in characters.
constexpr std::size_t blankCheckLineLimit = 255;

/// Erases with the time-out of an erase, which is none by default, and a progress dot each second.
ErrorText eraseWithDots(HandlerData& record, std::uint64_t address) {
    const AtScopeEnd restore([timeout = getTimeoutms(), period = setReadlineEchoPeriod(1)] {
        setReadlineEchoPeriod(period);
        setTimeoutms(timeout);
    });
    setTimeoutms(getEraseTimeoutms());
    return sendCommand(record, formatText("eraseFlash %" PRIx64, address));
}

ErrorText erase(HandlerData& record, const FlashDestination& destination) {
    const TimePoint start = Clock::now();
    show(record, formatText("Erasing %s ", destination.addressText.c_str()));
    ErrorText error = eraseWithDots(record, destination.address);
    show(record, formatText("... completed in %.3fs\n", secondsOf(Clock::now() - start)));
    return error;
}

ErrorText blankCheck(HandlerData& record, const FlashDestination& destination) {
    constexpr const char* command = "blankCheck";
    const std::string line = formatText("%s %s", command, destination.addressText.c_str());
    if (line.size() > blankCheckLineLimit)
        return formatError("Address too long: '%s'", destination.addressText.c_str());
    return genericHandlerWithAddressParser(record, line, command, nullptr);
}

ErrorText transfer(HandlerData& record, TransferDescriptor& descriptor, FlashDestination& destination) {
    if (destination.source.stream != nullptr)
        std::rewind(destination.source.stream);
    const char* label = descriptor.operation == Operation::verify ? "Verified" : "Programmed";
    return download(record, destination.source, static_cast<std::uint32_t>(destination.address),
                    commonBufferOverflowCallback, descriptor, label);
}

} // namespace

ErrorText runFlashOperation(HandlerData& record, TransferDescriptor& descriptor,
                            FlashDestination& destination) {
    switch (descriptor.operation) {
    case Operation::erase:
        return erase(record, destination);
    case Operation::blankCheck:
        return blankCheck(record, destination);
    default:
        return transfer(record, descriptor, destination);
    }
}

} // namespace secapp
