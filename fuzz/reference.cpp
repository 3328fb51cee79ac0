#include "fuzz.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace fuzzing {
namespace {

constexpr std::string_view whiteSpace = " \t\n\v\f\r";

unsigned digitValue(char c) {
    if (c >= '0' && c <= '9')
        return static_cast<unsigned>(c - '0');
    if (c >= 'a' && c <= 'f')
        return static_cast<unsigned>(c - 'a') + 10;
    if (c >= 'A' && c <= 'F')
        return static_cast<unsigned>(c - 'A') + 10;
    return 99;
}

bool hasHexadecimalPrefix(std::string_view text) {
    return text.size() > 1 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
}

/// The signed number at the start of the text in that base; one that needs more than 64 bits is the nearest.
Number readDigits(std::string_view text, unsigned base) {
    std::size_t at = std::min(text.find_first_not_of(whiteSpace), text.size());
    const bool isNegative = at < text.size() && text[at] == '-';
    if (at < text.size() && (text[at] == '-' || text[at] == '+'))
        ++at;
    const std::string_view rest = text.substr(at);
    if (base == 16 && hasHexadecimalPrefix(rest) && rest.size() > 2 && digitValue(rest[2]) < base)
        at += 2;
    const std::uint64_t limit = (std::uint64_t{1} << 63) - (isNegative ? 0 : 1);
    const std::size_t first = at;
    std::uint64_t magnitude = 0;
    bool fits = true;
    for (; at < text.size() && digitValue(text[at]) < base; ++at) {
        const unsigned digit = digitValue(text[at]);
        fits = fits && magnitude <= (limit - digit) / base;
        magnitude = fits ? magnitude * base + digit : limit;
    }
    const bool isWhole = fits && at == text.size() && (at > first || text.empty());
    return {static_cast<std::uint32_t>(isNegative ? 0 - magnitude : magnitude), isWhole};
}

} // namespace

void require(bool holds, const char* what) {
    if (holds)
        return;
    // Not through stderr, which may be silenced.
    ::dprintf(2, "Does not hold: %s\n", what);
    std::abort();
}

void silenceOutput() {
    static std::FILE* const nowhere = std::fopen("/dev/null", "w");
    require(nowhere != nullptr, "/dev/null can be opened");
    stdout = nowhere;
    stderr = nowhere;
}

Number referenceNumber(std::string_view text) {
    unsigned base = 10;
    if (hasHexadecimalPrefix(text)) {
        base = 16;
        text.remove_prefix(2);
    } else if (text.size() > 1 && text[0] == '0') {
        base = 8;
        text.remove_prefix(1);
    }
    text = text.substr(0, text.find('\0'));
    return readDigits(text, base);
}

std::string lowered(std::string_view text) {
    std::string result(text);
    for (char& c : result)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c + ('a' - 'A'));
    return result;
}

std::string stripped(std::string_view text) {
    const std::size_t first = text.find_first_not_of(whiteSpace);
    if (first == std::string_view::npos)
        return {};
    return std::string(text.substr(first, text.find_last_not_of(whiteSpace) - first + 1));
}

} // namespace fuzzing
