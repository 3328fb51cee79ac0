#include "commands/expressions.h"

#include "support/numbers.h"

#include <algorithm>

namespace secapp {
namespace {

bool standsOn(const Expression& expression, std::string_view operators) {
    return expression.at < expression.text.size() &&
           operators.find(expression.text[expression.at]) != std::string_view::npos;
}

} // namespace

ErrorText evaluateExpression(HandlerData& record, std::optional<FlashList>& regions, std::string_view text,
                             std::uint64_t& value) {
    Expression expression{.record = record, .regions = regions, .text = text};
    return parseSummands(expression, value);
}

bool isNumeric(std::string_view text) {
    if (startsWithIgnoringCase(text, "0x"))
        text.remove_prefix(2);
    return text.find_first_not_of("0123456789abcdefABCDEF") == std::string_view::npos;
}

ErrorText parseSummands(Expression& expression, std::uint64_t& value) {
    std::uint64_t sum = 0;
    if (ErrorText error = parseFactors(expression, sum))
        return error;
    while (standsOn(expression, "+-")) {
        const char operation = expression.text[expression.at++];
        std::uint64_t product = 0;
        if (ErrorText error = parseFactors(expression, product))
            return error;
        sum = operation == '+' ? sum + product : sum - product;
    }
    value = sum;
    return std::nullopt;
}

ErrorText parseFactors(Expression& expression, std::uint64_t& value) {
    std::uint64_t product = 0;
    if (ErrorText error = parseAtom(expression, product))
        return error;
    while (standsOn(expression, "*/")) {
        const char operation = expression.text[expression.at++];
        std::uint64_t factor = 0;
        if (ErrorText error = parseAtom(expression, factor))
            return error;
        if (operation == '/' && factor == 0)
            return formatError("Division by zero in '%s'", std::string(expression.text).c_str());
        // An atom has 32 bits, so the quotient cannot overflow.
        product = operation == '*' ? product * factor
                                   : static_cast<std::uint64_t>(static_cast<std::int64_t>(product) /
                                                                static_cast<std::int64_t>(factor));
    }
    value = product;
    return std::nullopt;
}

ErrorText parseAtom(Expression& expression, std::uint64_t& value) {
    const std::string_view atom = extractField(expression);
    return getValue(expression.record, expression.regions, atom, value);
}

ErrorText getValue(HandlerData& record, std::optional<FlashList>& regions, std::string_view atom,
                   std::uint64_t& value) {
    std::uint32_t number = 0;
    if (!decode(atom, number)) {
        value = number;
        return std::nullopt;
    }
    if (ErrorText error = getFlashInfo(record, regions))
        return error;
    for (const FlashRegion& region : regions->regions) {
        if (equalsIgnoringCase(region.name, atom)) {
            value = region.base;
            return std::nullopt;
        }
    }
    return formatError("Unknown memory '%s'", std::string(atom).c_str());
}

std::string_view extractField(Expression& expression) {
    const std::size_t start = expression.at;
    expression.at = std::min(expression.text.find_first_of("+-*/", start), expression.text.size());
    return expression.text.substr(start, expression.at - start);
}

} // namespace secapp
