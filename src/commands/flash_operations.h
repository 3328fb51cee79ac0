#pragma once

#include "link/handler_data.h"
#include "support/text.h"
#include "transfer/records.h"

#include <cstdint>
#include <string>

namespace secapp {

/// The address and the data of one flash operation; the sizes, the fill byte and the operation are in the
/// command's descriptor.
struct FlashDestination {
    /// The address as written in the command.
    std::string addressText;
    /// Its value.
    std::uint64_t address = 0;
    /// Used by program and verify only.
    TransferSource source;
};

/// Erases, blank-checks, programs or verifies at one address, as the descriptor's `operation` says.
[[nodiscard]] ErrorText runFlashOperation(HandlerData& record, TransferDescriptor& descriptor,
                                          FlashDestination& destination);

} // namespace secapp
