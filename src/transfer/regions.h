#pragma once

#include "link/handler_data.h"
#include "support/text.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace secapp {

/// One flash memory of the target, as the target reports it; a missing number is 0.
struct FlashRegion {
    std::string name;
    /// Bytes.
    std::uint32_t size = 0;
    std::uint32_t pageSize = 0;
    /// Bytes of the target's transfer buffer for this memory.
    std::uint32_t bufferSize = 0;
    /// An erased byte.
    std::uint8_t blankValue = 0;
    /// Address of the first byte.
    std::uint32_t base = 0;
};

struct FlashList {
    /// The number of memories that the target announced, 0 if it did not.
    std::uint32_t declaredCount = 0;
    /// In the order in which the target named them.
    std::vector<FlashRegion> regions;
};

/// Asks the target for its memories; the record's output handler receives the answer.
[[nodiscard]] ErrorText exchangeFlashQuery(HandlerData& record);

/// Adds the memories in the text of an answer to `list`, even when it returns an error because their number
/// is not the announced one.
[[nodiscard]] ErrorText parseFlashList(std::string_view answer, FlashList& list);

/// Asks the target for its memories without showing the answer. When the exchange fails, `list` is unchanged.
[[nodiscard]] ErrorText queryFlash(HandlerData& record, std::optional<FlashList>& list);

/// As `queryFlash`, but sends nothing if there is a list already.
[[nodiscard]] ErrorText getFlashInfo(HandlerData& record, std::optional<FlashList>& list);

/// The names of all memories in list order, each followed by ",".
[[nodiscard]] std::string buildListOfFlashes(const FlashList& list);

} // namespace secapp
