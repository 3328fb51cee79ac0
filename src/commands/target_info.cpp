#include "commands/target_info.h"

#include "link/protocol.h"
#include "transfer/regions.h"

namespace secapp {
namespace {

constexpr const char* externalFlash = "MORVI";
constexpr const char* noIdentification = "Not available (no internal flash)";

/// Sends a query whose answer is not shown and copies the answer's text.
ErrorText query(HandlerData& record, const char* command, std::string& answer) {
    if (ErrorText error = openPort(record))
        return error;
    HandlerData context = newHandlerData(record, record.echoFlags);
    if (ErrorText error = sendCommand(context, command))
        return error;
    answer = std::move(context.response);
    return std::nullopt;
}

/// The value of the last line of the answer with that key.
std::optional<std::string> valueOf(std::string_view answer, std::string_view key) {
    std::optional<std::string> found;
    while (const std::optional<std::string_view> line = nextPiece(answer, "\r\n")) {
        const KeyValue pair = splitKeyValue(*line);
        if (pair.value && equalsIgnoringCase(pair.key, key))
            found = std::string(*pair.value);
    }
    return found;
}

std::string regionLine(const FlashRegion& region, const std::optional<std::string>& family) {
    const std::uint32_t last = region.size == 0 ? region.base : region.base + region.size - 1;
    const std::string size = toKString(static_cast<std::int32_t>(region.size));
    if (family)
        return formatText("%.100s (%.100s): 0x%08x-0x%08x (%.50s) PageSize: 0x%x\n", region.name.c_str(),
                          family->c_str(), region.base, last, size.c_str(), region.pageSize);
    return formatText("%.100s: 0x%08x-0x%08x (%.50s) PageSize: 0x%x\n", region.name.c_str(), region.base,
                      last, size.c_str(), region.pageSize);
}

/// The external flash's region, the last of that name; null when there is none.
const FlashRegion* findExternal(const FlashList& list) {
    const FlashRegion* external = nullptr;
    for (const FlashRegion& region : list.regions)
        if (equalsIgnoringCase(region.name, externalFlash))
            external = &region;
    return external;
}

} // namespace

ErrorText infoHandler(HandlerData& record, std::string_view, std::string_view, const HandlerEntry*) {
    if (record.outputHandler == nullptr)
        return std::nullopt;
    if (ErrorText error = getPartInfo(record))
        return error;
    std::optional<FlashList> list;
    if (ErrorText error = queryFlash(record, list))
        return error;
    const FlashRegion* external = findExternal(*list);

    std::string identification = noIdentification;
    const bool hasInternal = list->regions.size() > (external != nullptr ? 1U : 0U);
    if (hasInternal) {
        if (ErrorText error = getIDInfo(record, identification))
            return error;
    }
    std::string family;
    if (external != nullptr) {
        if (ErrorText error = getMorviInfo(record, family))
            return error;
    }
    for (const FlashRegion& region : list->regions) {
        const bool isExternal = &region == external;
        show(record, regionLine(region, isExternal ? std::optional(family) : std::nullopt));
    }
    show(record, formatText("ID: %s\n", identification.c_str()));
    return std::nullopt;
}

ErrorText queryFlashHandler(HandlerData& record, std::string_view, std::string_view, const HandlerEntry*) {
    return exchangeFlashQuery(record);
}

ErrorText getPartInfo(HandlerData& record) {
    std::string answer;
    if (ErrorText error = query(record, "queryPart", answer))
        return error;
    const std::optional<std::string> part = valueOf(answer, "Partid");
    if (part)
        show(record, formatText("%s PartID: %s Clock: %sHz\n", valueOf(answer, "Decode").value_or("").c_str(),
                                part->c_str(), valueOf(answer, "Core clock").value_or("").c_str()));
    return std::nullopt;
}

ErrorText getMorviInfo(HandlerData& record, std::string& family) {
    std::string answer;
    if (ErrorText error = query(record, "queryMORVI", answer))
        return error;
    family = valueOf(answer, "Device family").value_or(family);
    return std::nullopt;
}

ErrorText getIDInfo(HandlerData& record, std::string& identification) {
    return query(record, "queryID", identification);
}

std::string toKString(std::int32_t size) {
    constexpr int bytesPerK = 1024;
    const bool whole = size % bytesPerK == 0;
    return formatText("%d%s bytes", whole ? size / bytesPerK : size, whole ? "K" : "");
}

} // namespace secapp
