#include "commands/expressions.h"

#include "support/numbers.h"

#include <algorithm>

namespace secapp {
namespace {

bool isAtOperator(const Expression& expression, std::string_view operators) {
    return expression.at < expression.text.size() &&
           operators.find(expression.text[expression.at]) != std::string_view::npos;
}

} // namespace

Result<std::uint64_t> evaluateExpression(HandlerData& record, std::optional<FlashList>& regions,
                                         std::string_view text) {
    Expression expression{.record = record, .regions = regions, .text = text};
    return parseSummands(expression);
}

bool isNumeric(std::string_view text) {
    if (startsWithIgnoringCase(text, "0x"))
        text.remove_prefix(2);
    return text.find_first_not_of("0123456789abcdefABCDEF") == std::string_view::npos;
}

Result<std::uint64_t> parseSummands(Expression& expression) {
    Result<std::uint64_t> sum = parseFactors(expression);
    while (sum && isAtOperator(expression, "+-")) {
        const char operation = expression.text[expression.at++];
        Result<std::uint64_t> product = parseFactors(expression);
        if (!product)
            return product;
        sum = operation == '+' ? *sum + *product : *sum - *product;
    }
    return sum;
}

Result<std::uint64_t> parseFactors(Expression& expression) {
    Result<std::uint64_t> product = parseAtom(expression);
    while (product && isAtOperator(expression, "*/")) {
        const char operation = expression.text[expression.at++];
        Result<std::uint64_t> factor = parseAtom(expression);
        if (!factor)
            return factor;
        if (operation == '/' && *factor == 0)
            return formatError("Division by zero in '%s'", std::string(expression.text).c_str());
        // An atom has 32 bits, so the quotient cannot overflow.
        product = operation == '*' ? *product * *factor
                                   : static_cast<std::uint64_t>(static_cast<std::int64_t>(*product) /
                                                                static_cast<std::int64_t>(*factor));
    }
    return product;
}

Result<std::uint64_t> parseAtom(Expression& expression) {
    const std::string_view atom = extractField(expression);
    return getValue(expression.record, expression.regions, atom);
}

Result<std::uint64_t> getValue(HandlerData& record, std::optional<FlashList>& regions,
                               std::string_view atom) {
    std::uint32_t number = 0;
    if (!decode(atom, number))
        return number;
    if (ErrorText error = getFlashInfo(record, regions))
        return error;
    for (const FlashRegion& region : regions->regions)
        if (equalsIgnoringCase(region.name, atom))
            return region.base;
    return formatError("Unknown memory '%s'", std::string(atom).c_str());
}

std::string_view extractField(Expression& expression) {
    const std::size_t start = expression.at;
    expression.at = std::min(expression.text.find_first_of("+-*/", start), expression.text.size());
    return expression.text.substr(start, expression.at - start);
}

} // namespace secapp
