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

/// The number in the type of %llu and %llx.
[[nodiscard]] constexpr unsigned long long shown(std::uint64_t number) {
    return number;
}

/// An error that ends with the system's text for the current error number.
[[nodiscard]] ErrorText systemError(const std::string& what);

/// Parses a whole word of hexadecimal digits, with or without "0x"; none for other characters and for more
/// than 64 bits.
[[nodiscard]] std::optional<std::uint64_t> parseHexadecimal(std::string_view word);

/// Parses a whole word as a number: hexadecimal after "0x", else decimal.
[[nodiscard]] std::optional<std::uint64_t> parseNumber(std::string_view word);

/// Parses a whole word as a host does: hexadecimal after "0x", octal after a leading "0", else decimal; none
/// for more than 32 bits.
[[nodiscard]] std::optional<std::uint64_t> parseHostNumber(std::string_view word);

/// Parses a whole word as a decimal number with an optional fraction, and multiplies it by 10 to the power
/// of `decimals`; further digits are dropped.
[[nodiscard]] std::optional<std::uint64_t> parseFixed(std::string_view word, std::size_t decimals);

/// The text without spaces and tabs at both ends.
[[nodiscard]] std::string_view trimmed(std::string_view text);

/// A row of a help text: a name and, from `column` on, its meaning, folded at 100 characters.
[[nodiscard]] std::string helpRow(std::string_view name, std::size_t column, std::string_view meaning);

/// The first `limit` characters of the text for one line of output: all but printable ASCII as \xNN.
[[nodiscard]] std::string printable(std::string_view text, std::size_t limit);

} // namespace vqxsim
