#include "text.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace vqxsim {

namespace {

std::optional<std::uint64_t> parseDigits(std::string_view digits, int base) {
    std::uint64_t value = 0;
    const char* const end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, value, base);
    if (error != std::errc() || stop != end)
        return std::nullopt;
    return value;
}

bool hasHexadecimalPrefix(std::string_view word) {
    return word.starts_with("0x") || word.starts_with("0X");
}

} // namespace

std::string formatText(const char* pattern, ...) {
    va_list arguments;
    va_start(arguments, pattern);
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, pattern, arguments);
    va_end(arguments);
    std::string text(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
    std::vsnprintf(text.data(), text.size() + 1, pattern, again);
    va_end(again);
    return text;
}

ErrorText systemError(const std::string& what) {
    return formatText("%s: %s", what.c_str(), std::strerror(errno));
}

std::optional<std::uint64_t> parseHexadecimal(std::string_view word) {
    return parseDigits(hasHexadecimalPrefix(word) ? word.substr(2) : word, 16);
}

std::optional<std::uint64_t> parseNumber(std::string_view word) {
    return hasHexadecimalPrefix(word) ? parseDigits(word.substr(2), 16) : parseDigits(word, 10);
}

std::optional<std::uint64_t> parseHostNumber(std::string_view word) {
    const bool octal = word.starts_with('0') && word.size() > 1 && !hasHexadecimalPrefix(word);
    const auto number = octal ? parseDigits(word.substr(1), 8) : parseNumber(word);
    return number && *number <= UINT32_MAX ? number : std::nullopt;
}

std::optional<std::uint64_t> parseFixed(std::string_view word, std::size_t decimals) {
    const std::size_t point = std::min(word.find('.'), word.size());
    const std::string_view fraction = word.substr(std::min(point + 1, word.size()));
    if (word.size() < (point < word.size() ? 2 : 1) ||
        fraction.find_first_not_of("0123456789") != std::string_view::npos)
        return std::nullopt;
    std::string digits(word.substr(0, point));
    digits.append(fraction.substr(0, decimals)).resize(point + decimals, '0');
    return parseDigits(digits, 10);
}

std::string_view trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

std::string helpRow(std::string_view name, std::size_t column, std::string_view meaning) {
    constexpr std::size_t lineLimit = 100;
    std::string row("  ");
    row.append(name).resize(std::max(column, row.size() + 1), ' ');
    const std::size_t width = lineLimit - column;
    while (meaning.size() > width) {
        const std::size_t end = meaning.rfind(' ', width);
        row.append(meaning.substr(0, end)).append("\n").append(column, ' ');
        meaning.remove_prefix(end + 1);
    }
    return row.append(meaning).append("\n");
}

std::string printable(std::string_view text, std::size_t limit) {
    std::string shown;
    for (const char c : text.substr(0, limit)) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte < 0x7F)
            shown += c;
        else
            shown += formatText("\\x%02x", byte);
    }
    if (text.size() > limit)
        shown += "...";
    return shown;
}

} // namespace vqxsim
