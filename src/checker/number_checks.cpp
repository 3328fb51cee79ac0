#include "checker/number_checks.h"

#include "commands/expressions.h"
#include "support/numbers.h"

#include <algorithm>
#include <cctype>
#include <cinttypes>
#include <cstdlib>
#include <functional>
#include <utility>

namespace secapp {
namespace {

constexpr std::string_view operators = "+-*/";

std::optional<std::uint64_t> evaluate(std::string_view expression, std::optional<FlashList>& memories) {
    // Sends nothing to a target, because the memories are given.
    HandlerData unusedRecord;
    const Result<std::uint64_t> value = evaluateExpression(unusedRecord, memories, expression);
    return value ? std::optional(*value) : std::nullopt;
}

/// The names in the expression, each as a memory at an address that depends on the name alone.
FlashList memoriesOf(std::string_view expression) {
    FlashList memories;
    while (const std::optional<std::string_view> atom = nextPiece(expression, operators)) {
        std::uint32_t number = 0;
        if (!decode(*atom, number))
            continue;
        std::string name(*atom);
        std::transform(name.begin(), name.end(), name.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        const auto address = static_cast<std::uint32_t>(std::hash<std::string>{}(name));
        memories.regions.push_back({.name = std::move(name), .base = address});
    }
    return memories;
}

bool isHexadecimal(std::string_view number) {
    return startsWithIgnoringCase(number, "0x");
}

} // namespace

void checkNumber(Inspection& inspection, std::string_view number) {
    std::uint32_t value = 0;
    if (decode(number, value))
        return;
    // With base 0, strtoll chooses the same base.
    const std::string text(number);
    const long long whole = std::strtoll(text.c_str(), nullptr, 0);
    if (whole < 0 || whole > UINT32_MAX)
        addError(inspection, quoted(number) + (whole < 0 ? " is negative" : " has more than 32 bits") +
                                 formatText(isHexadecimal(number) ? ": it is read as 0x%" PRIx32
                                                                  : ": it is read as %" PRIu32,
                                            value));
    else if (!isHexadecimal(number) && std::strtoll(text.c_str(), nullptr, 10) != whole)
        addWarning(inspection, quoted(number) + formatText(" is octal: it is read as %" PRIu32, value));
}

void checkExpression(Inspection& inspection, std::string_view expression) {
    // Every name has a value here, so that nothing else can fail.
    if (!comparableValue(expression))
        addError(inspection, quoted(expression) + " divides by zero");
    while (const std::optional<std::string_view> atom = nextPiece(expression, operators)) {
        std::uint32_t value = 0;
        const bool isNumber = !decode(*atom, value);
        if (isNumber)
            checkNumber(inspection, *atom);
        else if (atom->find_first_not_of("0123456789") == std::string_view::npos)
            addError(inspection, quoted(*atom) + " is not a number");
        else if (atom->front() >= '0' && atom->front() <= '9')
            addWarning(inspection, quoted(*atom) + " is not a number: it is taken as the name of a memory");
    }
}

void checkTargetWord(Inspection& inspection, std::string_view word) {
    if (word.front() != '+' && numericValue(word))
        checkExpression(inspection, word);
}

void checkAddress(Inspection& inspection, std::string_view address) {
    checkExpression(inspection, address);
    const std::optional<std::uint64_t> value = numericValue(address);
    if (value && *value > UINT32_MAX)
        addError(inspection,
                 quoted(address) + formatText(" is 0x%" PRIx64 ": no memory has this address", *value));
}

std::optional<std::uint64_t> numericValue(std::string_view expression) {
    std::optional<FlashList> noMemories = FlashList{};
    return evaluate(expression, noMemories);
}

std::optional<std::uint64_t> comparableValue(std::string_view expression) {
    std::optional<FlashList> memories = memoriesOf(expression);
    return evaluate(expression, memories);
}

} // namespace secapp
