#pragma once

#include "link/handler_data.h"
#include "support/text.h"
#include "transfer/regions.h"

#include <cstdint>
#include <optional>
#include <string_view>

namespace secapp {

/// Address expressions: sums and products of numbers and region names, worked from left to right, "*" and "/"
/// before "+" and "-". Numbers have 32 bits, results 64 and wrap; division is signed. The first name fetches
/// the target's regions into `regions`, where later expressions find them.

/// The value of the whole expression.
[[nodiscard]] Result<std::uint64_t> evaluateExpression(HandlerData& record, std::optional<FlashList>& regions,
                                                       std::string_view text);

/// Whether the text consists of hexadecimal digits, with or without "0x" in front; so does the empty text.
[[nodiscard]] bool isNumeric(std::string_view text);

// What these are made of.

/// An expression that is being evaluated: where its regions come from, its text, and the place reached.
struct Expression {
    HandlerData& record;
    std::optional<FlashList>& regions;
    std::string_view text;
    std::size_t at = 0;
};

/// The levels of the grammar, each from the place reached on: a sum, a product, one number or name. The
/// expression then stands on the operator that ends the level, or at the end.
[[nodiscard]] Result<std::uint64_t> parseSummands(Expression& expression);
[[nodiscard]] Result<std::uint64_t> parseFactors(Expression& expression);
[[nodiscard]] Result<std::uint64_t> parseAtom(Expression& expression);

/// The value of one number or name.
[[nodiscard]] Result<std::uint64_t> getValue(HandlerData& record, std::optional<FlashList>& regions,
                                             std::string_view atom);

/// Takes the atom (possibly empty) that starts at the place reached, and moves on to its end.
[[nodiscard]] std::string_view extractField(Expression& expression);

} // namespace secapp
