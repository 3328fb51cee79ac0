#include "fuzz.h"

#include "commands/expressions.h"
#include "support/numbers.h"

#include <algorithm>
#include <cctype>
#include <optional>

using namespace fuzzing;

namespace {

const secapp::FlashList& regions() {
    static const secapp::FlashList list = [] {
        secapp::FlashList made;
        const std::pair<const char*, std::uint32_t> named[] = {{"FLASH", 0x10000000},
                                                               {"a", 0xFFFFFFFF},
                                                               {"BankB", 7},
                                                               {"A", 1},
                                                               {"08", 8},
                                                               {"12", 99},
                                                               {"(x)", 0}};
        for (const auto& [name, base] : named)
            made.regions.push_back({.name = name, .base = base});
        return made;
    }();
    return list;
}

/// The value of an expression, found by cutting it at its last operator; none with the error text set.
struct Reference {
    std::string_view whole;
    std::string error;

    std::optional<std::uint64_t> sum(std::string_view text) {
        const std::size_t at = text.find_last_of("+-");
        if (at == std::string_view::npos)
            return product(text);
        const auto left = sum(text.substr(0, at));
        const auto right = left ? product(text.substr(at + 1)) : std::nullopt;
        if (!right)
            return std::nullopt;
        return text[at] == '+' ? *left + *right : *left - *right;
    }

    std::optional<std::uint64_t> product(std::string_view text) {
        const std::size_t at = text.find_last_of("*/");
        if (at == std::string_view::npos)
            return atom(text);
        const auto left = product(text.substr(0, at));
        const auto right = left ? atom(text.substr(at + 1)) : std::nullopt;
        if (!right)
            return std::nullopt;
        if (text[at] == '*')
            return *left * *right;
        if (*right != 0)
            return static_cast<std::uint64_t>(static_cast<std::int64_t>(*left) /
                                              static_cast<std::int64_t>(*right));
        return fail("Division by zero in '", whole);
    }

    std::optional<std::uint64_t> atom(std::string_view text) {
        const Number number = referenceNumber(text);
        if (number.isWhole)
            return number.value;
        for (const secapp::FlashRegion& region : regions().regions)
            if (lowered(region.name) == lowered(text))
                return region.base;
        return fail("Unknown memory '", text);
    }

    std::optional<std::uint64_t> fail(const char* message, std::string_view culprit) {
        error = (message + std::string(culprit.substr(0, culprit.find('\0'))) + "'").substr(0, 1023);
        return std::nullopt;
    }
};

bool looksNumeric(std::string_view text) {
    if (lowered(text.substr(0, 2)) == "0x")
        text.remove_prefix(2);
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return std::isxdigit(static_cast<unsigned char>(c)); });
}

void check(std::string_view text) {
    Reference reference{text, {}};
    const std::optional<std::uint64_t> expected = reference.sum(text);

    secapp::HandlerData record;
    std::optional<secapp::FlashList> list = regions();
    const secapp::Result<std::uint64_t> value = secapp::evaluateExpression(record, list, text);
    require(static_cast<bool>(value) == expected.has_value(), "which expressions are refused");
    require(value || value.error() == reference.error, "the message for a bad expression");
    require(!value || *value == *expected, "the value of an expression");
    std::uint32_t number = 0;
    const Number expectedNumber = referenceNumber(text);
    require(!secapp::decode(text, number) == expectedNumber.isWhole, "which numbers are refused");
    require(number == expectedNumber.value, "the value of a number");
    require(secapp::isNumeric(text) == looksNumeric(text), "which texts count as fill values");
}

} // namespace

/// Evaluates each line as an address expression and as a number, and compares the results with a second
/// implementation.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text = textOf(data, size);
    for (std::size_t at = 0; at <= size;) {
        const std::size_t end = std::min(text.find('\n', at), size);
        check(text.substr(at, end - at));
        at = end + 1;
    }
    return 0;
}
