#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vqxsim {

/// The text of an error, or none on success.
using ErrorText = std::optional<std::string>;

/// Formats like printf into a text of any length.
[[nodiscard, gnu::format(printf, 1, 2)]] std::string formatText(const char* pattern, ...);

/// The number as the conversions %llu and %llx take it.
[[nodiscard]] constexpr unsigned long long shown(std::uint64_t number) {
    return number;
}

/// An error that ends with the system's text for the current error number.
[[nodiscard]] ErrorText systemError(const std::string& what);

/// Reads a whole word of hexadecimal digits, with or without "0x"; none when it holds anything else or
/// exceeds 64 bits.
[[nodiscard]] std::optional<std::uint64_t> parseHexadecimal(std::string_view word);

/// Reads a whole word as a number: hexadecimal with "0x", else decimal.
[[nodiscard]] std::optional<std::uint64_t> parseNumber(std::string_view word);

/// Reads a whole word as a host does: hexadecimal after "0x", octal after a leading "0", else decimal; none
/// when it exceeds 32 bits.
[[nodiscard]] std::optional<std::uint64_t> parseHostNumber(std::string_view word);

/// Reads a whole word as a decimal number that may have a fraction, multiplied by 10 to the power of
/// `decimals`; further digits of the fraction are dropped.
[[nodiscard]] std::optional<std::uint64_t> parseFixed(std::string_view word, std::size_t decimals);

/// The text with blanks and tabs removed from both ends.
[[nodiscard]] std::string_view trimmed(std::string_view text);

/// A row of a help text: a name, and behind `column` characters what it means, folded at 100 characters.
[[nodiscard]] std::string helpRow(std::string_view name, std::size_t column, std::string_view meaning);

/// The text made safe for one line of output: other than printable ASCII is shown as \xNN, and at most
/// `limit` characters of the text are shown.
[[nodiscard]] std::string printable(std::string_view text, std::size_t limit);

} // namespace vqxsim
