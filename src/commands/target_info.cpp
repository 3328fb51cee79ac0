#include "commands/target_info.h"

#include "link/protocol.h"
#include "transfer/regions.h"

namespace secapp {
namespace {

constexpr const char* externalFlash = "MORVI";
constexpr const char* noIdentification = "Not available (no internal flash)";

/// Asks the target without showing the answer, and returns it.
Result<std::string> askQuietly(HandlerData& record, const char* command) {
    Result<HandlerData> quiet = quietRecord(record);
    if (!quiet)
        return quiet.error();
    return ask(*quiet, command);
}

/// The value of the last line of the answer with that key.
std::optional<std::string> valueOfKey(std::string_view answer, std::string_view key) {
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

/// The external flash, the last memory of that name; null if there is none.
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

    const bool hasInternal = list->regions.size() > (external != nullptr ? 1U : 0U);
    const Result<std::string> identification =
        hasInternal ? getIDInfo(record) : std::string(noIdentification);
    if (!identification)
        return identification.error();
    const Result<std::string> family = external != nullptr ? getMorviInfo(record) : std::string();
    if (!family)
        return family.error();
    for (const FlashRegion& region : list->regions) {
        const bool isExternal = &region == external;
        show(record, regionLine(region, isExternal ? std::optional(*family) : std::nullopt));
    }
    show(record, formatText("ID: %s\n", identification->c_str()));
    return std::nullopt;
}

ErrorText queryFlashHandler(HandlerData& record, std::string_view, std::string_view, const HandlerEntry*) {
    return exchangeFlashQuery(record);
}

ErrorText getPartInfo(HandlerData& record) {
    const Result<std::string> answer = askQuietly(record, "queryPart");
    if (!answer)
        return answer.error();
    if (const std::optional<std::string> part = valueOfKey(*answer, "Partid"))
        show(record,
             formatText("%s PartID: %s Clock: %sHz\n", valueOfKey(*answer, "Decode").value_or("").c_str(),
                        part->c_str(), valueOfKey(*answer, "Core clock").value_or("").c_str()));
    return std::nullopt;
}

Result<std::string> getMorviInfo(HandlerData& record) {
    const Result<std::string> answer = askQuietly(record, "queryMORVI");
    return answer ? valueOfKey(*answer, "Device family").value_or("") : answer;
}

Result<std::string> getIDInfo(HandlerData& record) {
    return askQuietly(record, "queryID");
}

std::string toKString(std::int32_t size) {
    constexpr int bytesPerK = 1024;
    const bool whole = size % bytesPerK == 0;
    return formatText("%d%s bytes", whole ? size / bytesPerK : size, whole ? "K" : "");
}

} // namespace secapp
