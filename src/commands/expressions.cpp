#include "commands/expressions.h"

#include "support/numbers.h"
#include "transfer/regions.h"

#include <algorithm>

namespace secapp {
namespace {

bool standsOn(const ExpressionCursor& cursor, std::string_view operators) {
    return cursor.at < cursor.text.size() && operators.find(cursor.text[cursor.at]) != std::string_view::npos;
}

} // namespace

ErrorText evaluateExpression(HandlerData& record, TransferDescriptor& holder, std::string_view expression,
                             std::uint64_t& value) {
    ExpressionCursor cursor{expression};
    return parseSummands(record, holder, cursor, value);
}

ErrorText parseSummands(HandlerData& record, TransferDescriptor& holder, ExpressionCursor& cursor,
                        std::uint64_t& value) {
    std::uint64_t sum = 0;
    if (ErrorText error = parseFactors(record, holder, cursor, sum))
        return error;
    while (standsOn(cursor, "+-")) {
        const char operation = cursor.text[cursor.at++];
        std::uint64_t product = 0;
        if (ErrorText error = parseFactors(record, holder, cursor, product))
            return error;
        sum = operation == '+' ? sum + product : sum - product;
    }
    value = sum;
    return std::nullopt;
}

ErrorText parseFactors(HandlerData& record, TransferDescriptor& holder, ExpressionCursor& cursor,
                       std::uint64_t& value) {
    std::uint64_t product = 0;
    if (ErrorText error = parseAtom(record, holder, cursor, product))
        return error;
    while (standsOn(cursor, "*/")) {
        const char operation = cursor.text[cursor.at++];
        std::uint64_t factor = 0;
        if (ErrorText error = parseAtom(record, holder, cursor, factor))
            return error;
        if (operation == '/' && factor == 0)
            return formatError("Division by zero in '%s'", std::string(cursor.text).c_str());
        // An atom has 32 bits, so the quotient cannot overflow.
        product = operation == '*' ? product * factor
                                   : static_cast<std::uint64_t>(static_cast<std::int64_t>(product) /
                                                                static_cast<std::int64_t>(factor));
    }
    value = product;
    return std::nullopt;
}

ErrorText parseAtom(HandlerData& record, TransferDescriptor& holder, ExpressionCursor& cursor,
                    std::uint64_t& value) {
    return getValue(record, holder, extractField(cursor), value);
}

ErrorText getValue(HandlerData& record, TransferDescriptor& holder, std::string_view atom,
                   std::uint64_t& value) {
    std::uint32_t number = 0;
    if (!decode(atom, number)) {
        value = number;
        return std::nullopt;
    }
    if (ErrorText error = getFlashInfo(record, holder.flashList))
        return error;
    for (const FlashRegion& region : holder.flashList->regions) {
        if (equalsIgnoringCase(region.name, atom)) {
            value = region.base;
            return std::nullopt;
        }
    }
    return formatError("Unknown memory '%s'", std::string(atom).c_str());
}

std::string_view extractField(ExpressionCursor& cursor) {
    const std::size_t start = cursor.at;
    cursor.at = std::min(cursor.text.find_first_of("+-*/", start), cursor.text.size());
    return cursor.text.substr(start, cursor.at - start);
}

bool isNumeric(std::string_view text) {
    if (startsWithIgnoringCase(text, "0x"))
        text.remove_prefix(2);
    return text.find_first_not_of("0123456789abcdefABCDEF") == std::string_view::npos;
}

} // namespace secapp
