#pragma once

#include "link/handler_data.h"
#include "support/text.h"
#include "transfer/records.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace secapp {

/// Address expressions: sums and products of numbers and region names, worked from left to right, "*" and "/"
/// before "+" and "-". Numbers have 32 bits, results 64 and wrap; division is signed. The first name fetches
/// the target's regions into the descriptor, where later expressions find them.

/// Where the evaluation stands in its text.
struct ExpressionCursor {
    std::string_view text;
    std::size_t at = 0;
};

/// Evaluates the whole expression. `value` is written only on success.
[[nodiscard]] ErrorText evaluateExpression(HandlerData& record, TransferDescriptor& holder,
                                           std::string_view expression, std::uint64_t& value);

/// The levels of the grammar, each from the cursor on: a sum, a product, one number or name. The cursor then
/// stands on the operator that ends the level, or at the end.
[[nodiscard]] ErrorText parseSummands(HandlerData& record, TransferDescriptor& holder,
                                      ExpressionCursor& cursor, std::uint64_t& value);
[[nodiscard]] ErrorText parseFactors(HandlerData& record, TransferDescriptor& holder,
                                     ExpressionCursor& cursor, std::uint64_t& value);
[[nodiscard]] ErrorText parseAtom(HandlerData& record, TransferDescriptor& holder, ExpressionCursor& cursor,
                                  std::uint64_t& value);

/// The value of one number or name.
[[nodiscard]] ErrorText getValue(HandlerData& record, TransferDescriptor& holder, std::string_view atom,
                                 std::uint64_t& value);

/// Takes the atom (possibly empty) that starts at the cursor, and moves the cursor to its end.
[[nodiscard]] std::string_view extractField(ExpressionCursor& cursor);

/// Whether the text consists of hexadecimal digits, with or without "0x" in front; so does the empty text.
[[nodiscard]] bool isNumeric(std::string_view text);

} // namespace secapp
