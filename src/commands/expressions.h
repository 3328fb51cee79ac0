#pragma once

#include "link/handler_data.h"
#include "support/text.h"
#include "transfer/regions.h"

#include <cstdint>
#include <optional>
#include <string_view>

namespace secapp {

/// Address expressions: sums and products of numbers and memory names, evaluated from left to right, "*" and
/// "/" before "+" and "-". Numbers have 32 bits; results have 64 bits and wrap; division is signed. The first
/// name fetches the target's memories into `regions`, which later expressions use.

/// The value of the whole expression.
[[nodiscard]] Result<std::uint64_t> evaluateExpression(HandlerData& record, std::optional<FlashList>& regions,
                                                       std::string_view text);

/// Whether the text consists of hexadecimal digits, with or without "0x" before them. True for an empty text.
[[nodiscard]] bool isNumeric(std::string_view text);

/// An expression that is being evaluated. `at` is the place reached in its text.
struct Expression {
    HandlerData& record;
    std::optional<FlashList>& regions;
    std::string_view text;
    std::size_t at = 0;
};

/// The levels of the grammar, each from the place reached on: a sum, a product, one number or name. The place
/// reached is then the operator that ends the level, or the end.
[[nodiscard]] Result<std::uint64_t> parseSummands(Expression& expression);
[[nodiscard]] Result<std::uint64_t> parseFactors(Expression& expression);
[[nodiscard]] Result<std::uint64_t> parseAtom(Expression& expression);

/// The value of one number or name.
[[nodiscard]] Result<std::uint64_t> getValue(HandlerData& record, std::optional<FlashList>& regions,
                                             std::string_view atom);

/// Returns the number or name (possibly empty) at the place reached, and moves to its end.
[[nodiscard]] std::string_view extractField(Expression& expression);

} // namespace secapp
