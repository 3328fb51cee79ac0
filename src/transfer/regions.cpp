#include "transfer/regions.h"

#include "link/protocol.h"
#include "support/echo.h"
#include "support/numbers.h"

namespace secapp {
namespace {

/// The debug options that the target goes back to after a query.
constexpr unsigned allDebugOptions = 7;
constexpr int debugOptionsShift = 16;

/// Optional: an error status is ignored, a lost answer is not.
ErrorText sendDebugOptions(HandlerData& record, unsigned options) {
    if ((record.echoFlags & ECHO_TARGET_DEBUG) != 0)
        (void)sendCommand(record, formatText("DebugOptions %u", options));
    return connectionFailure(record);
}

void setProperty(FlashRegion& region, std::string_view key, std::uint32_t number) {
    if (equalsIgnoringCase(key, "Base"))
        region.base = number;
    else if (equalsIgnoringCase(key, "Size"))
        region.size = number;
    else if (equalsIgnoringCase(key, "Page"))
        region.pageSize = number;
    else if (equalsIgnoringCase(key, "Buffer"))
        region.bufferSize = number;
    else if (equalsIgnoringCase(key, "Blank"))
        region.blankValue = static_cast<std::uint8_t>(number);
}

} // namespace

ErrorText exchangeFlashQuery(HandlerData& record) {
    constexpr std::uint32_t optionBits = ECHO_TARGET_DEBUG_A | ECHO_TARGET_DEBUG_B | ECHO_TARGET_DEBUG_S;
    if (ErrorText error = sendDebugOptions(record, (record.echoFlags & optionBits) >> debugOptionsShift))
        return error;
    if (ErrorText error = sendCommand(record, "queryFlash"))
        return error;
    return sendDebugOptions(record, allDebugOptions);
}

ErrorText parseFlashList(std::string_view answer, FlashList& list) {
    while (const std::optional<std::string_view> line = nextPiece(answer, "\r\n")) {
        const auto [key, value] = splitKeyValue(*line);
        if (equalsIgnoringCase(key, "No Flash"))
            break;
        if (!value)
            continue;
        std::uint32_t number = 0;
        decodeFull(*value, number, false);
        if (equalsIgnoringCase(key, "Number of Flash Devices"))
            list.declaredCount = number;
        else if (equalsIgnoringCase(key, "Name"))
            list.regions.emplace_back().name = *value;
        else if (!list.regions.empty())
            setProperty(list.regions.back(), key, number);
    }
    // A target with a single memory need not announce the number.
    if (list.regions.size() == 1 && list.declaredCount == 0)
        list.declaredCount = 1;
    if (list.regions.size() != list.declaredCount)
        return formatError("Mismatch between number of device and count of devices returned");
    return std::nullopt;
}

ErrorText queryFlash(HandlerData& record, std::optional<FlashList>& list) {
    Result<HandlerData> quiet = quietRecord(record);
    if (!quiet)
        return quiet.error();
    if (ErrorText error = exchangeFlashQuery(*quiet))
        return error;
    list.emplace();
    return parseFlashList(quiet->response, *list);
}

ErrorText getFlashInfo(HandlerData& record, std::optional<FlashList>& list) {
    return list ? std::nullopt : queryFlash(record, list);
}

std::string buildListOfFlashes(const FlashList& list) {
    std::string names;
    for (const FlashRegion& region : list.regions)
        names.append(region.name).append(",");
    return names;
}

} // namespace secapp
