#include "support/text.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

namespace secapp {
namespace {

constexpr std::string_view whiteSpace = " \t\n\v\f\r";

char lowerCase(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

} // namespace

std::string formatArguments(const char* format, std::va_list arguments) {
    std::va_list counted;
    va_copy(counted, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, counted);
    va_end(counted);
    std::string text(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
    // The terminating zero overwrites the one that std::string keeps after its last character.
    std::vsnprintf(text.data(), text.size() + 1, format, arguments);
    return text;
}

std::string formatText(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    std::string text = formatArguments(format, arguments);
    va_end(arguments);
    return text;
}

ErrorText formatError(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    std::string text = formatArguments(format, arguments);
    va_end(arguments);
    text.resize(std::min(text.size(), textLimit));
    return text;
}

std::string_view trimRight(std::string_view text) {
    return text.substr(0, text.find_last_not_of(whiteSpace) + 1);
}

std::string_view trimwhitespace(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(whiteSpace), text.size()));
    return trimRight(text);
}

std::optional<std::string_view> nextPiece(std::string_view& rest, std::string_view separators) {
    const std::size_t start = rest.find_first_not_of(separators);
    if (start == std::string_view::npos) {
        rest = {};
        return std::nullopt;
    }
    const std::size_t end = std::min(rest.find_first_of(separators, start), rest.size());
    const std::string_view piece = rest.substr(start, end - start);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    return piece;
}

std::optional<std::string_view> nextWord(std::string_view& rest) {
    return nextPiece(rest, " \t");
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && startsWithIgnoringCase(a, b);
}

bool startsWithIgnoringCase(std::string_view text, std::string_view start) {
    return text.size() >= start.size() && std::equal(
                                              start.begin(), start.end(), text.begin(),
                                              [](char a, char b) { return lowerCase(a) == lowerCase(b); });
}

KeyValue splitKeyValue(std::string_view line) {
    const std::size_t end = line.find('=');
    if (end == std::string_view::npos)
        return {trimwhitespace(line), std::nullopt};
    const std::string_view after = line.substr(end + 1);
    return {trimwhitespace(line.substr(0, end)), trimwhitespace(after.substr(0, after.find('=')))};
}

std::string getBasename(std::string_view path) {
    if (path.empty())
        return ".";
    const std::size_t last = path.find_last_not_of('/');
    if (last == std::string_view::npos)
        return "/";
    path = path.substr(0, last + 1);
    return std::string(path.substr(path.rfind('/') + 1));
}

} // namespace secapp
