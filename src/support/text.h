#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace secapp {

/// The result of an operation that can fail: empty on success, else the text that the user reads. Callers
/// pass it upward unchanged.
using ErrorText = std::optional<std::string>;

/// The result of an operation that returns a value and can fail: the value, or the error text.
template <typename T>
class [[nodiscard]] Result {
public:
    Result(T value) : value_(std::move(value)) {}
    /// `error` must hold a text.
    Result(ErrorText error) : error_(std::move(error)) {}
    Result(std::nullopt_t) = delete;

    explicit operator bool() const { return value_.has_value(); }
    T& operator*() { return *value_; }
    const T& operator*() const { return *value_; }
    T* operator->() { return &*value_; }
    const T* operator->() const { return &*value_; }
    [[nodiscard]] const ErrorText& error() const { return error_; }

private:
    std::optional<T> value_;
    ErrorText error_;
};

/// The most characters of an error text, which is cut, and of a script line, whose rest is the next line.
inline constexpr std::size_t textLimit = 1023;

/// Formats as printf does, into a text of any length.
[[nodiscard, gnu::format(printf, 1, 2)]] std::string formatText(const char* format, ...);

/// As `formatText`, with the arguments as a list.
[[nodiscard, gnu::format(printf, 1, 0)]] std::string formatArguments(const char* format,
                                                                     std::va_list arguments);

/// Makes an error text, cut at `textLimit` characters.
[[nodiscard, gnu::format(printf, 1, 2)]] ErrorText formatError(const char* format, ...);

/// The text without white space (space, tab, newline, vertical tab, form feed, carriage return) at its start
/// and end.
[[nodiscard]] std::string_view trimwhitespace(std::string_view text);

/// The text without white space at its end; leading white space stays.
[[nodiscard]] std::string_view trimRight(std::string_view text);

/// Removes the next piece from the front of `rest`: skips characters of `separators`, then reads up to the
/// next one of them, which is dropped. Empty when only separators are left.
[[nodiscard]] std::optional<std::string_view> nextPiece(std::string_view& rest, std::string_view separators);

/// Removes the next word (separated by spaces and tabs) from the front of `rest`; empty when no word is left.
[[nodiscard]] std::optional<std::string_view> nextWord(std::string_view& rest);

/// Both compare byte for byte without regard to the case of ASCII letters.
[[nodiscard]] bool equalsIgnoringCase(std::string_view a, std::string_view b);
[[nodiscard]] bool startsWithIgnoringCase(std::string_view text, std::string_view start);

/// A "key = value" line cut at its first "=": both sides trimmed, the value ending at a second "=". No value
/// for a line without "=".
struct KeyValue {
    std::string_view key;
    std::optional<std::string_view> value;
};
[[nodiscard]] KeyValue splitKeyValue(std::string_view line);

/// The last component of a path as the POSIX `basename` gives it: trailing slashes do not count, "/" stays
/// "/".
[[nodiscard]] std::string getBasename(std::string_view path);

/// The bytes of a text.
[[nodiscard]] inline std::span<const std::uint8_t> bytesOf(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

} // namespace secapp
