#pragma once

#include "link/handler_data.h"
#include "support/text.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace secapp {

/// One flash memory of the target, as it reports it; what it does not report is 0.
struct FlashRegion {
    std::string name;
    /// Bytes.
    std::uint32_t size = 0;
    std::uint32_t pageSize = 0;
    /// Bytes of the target's transfer buffer for this region.
    std::uint32_t bufferSize = 0;
    /// An erased byte.
    std::uint8_t blankValue = 0;
    /// Address of the first byte.
    std::uint32_t base = 0;
};

struct FlashList {
    /// The number of regions that the target announced, 0 when it did not.
    std::uint32_t declaredCount = 0;
    /// In the order in which the target named them.
    std::vector<FlashRegion> regions;
};

/// Asks the target for its regions and lets the answer flow to the record's output handler.
[[nodiscard]] ErrorText exchangeFlashQuery(HandlerData& record);

/// Adds the regions in the text of an answer to `list`. An error when their number is not the announced one;
/// `list` then holds what was found.
[[nodiscard]] ErrorText parseFlashList(std::string_view answer, FlashList& list);

/// Asks the target for its regions without showing the answer. When the exchange fails, `list` stays as it
/// was.
[[nodiscard]] ErrorText queryFlash(HandlerData& record, std::optional<FlashList>& list);

/// As `queryFlash` when there is no list yet; else nothing is sent.
[[nodiscard]] ErrorText getFlashInfo(HandlerData& record, std::optional<FlashList>& list);

/// The names of all regions in list order, each followed by ",".
[[nodiscard]] std::string buildListOfFlashes(const FlashList& list);

} // namespace secapp
