#pragma once

#include "checker/inspection.h"

#include <cstdint>

namespace secapp {

/// Reports a number that has more than 32 bits or is octal.
void checkNumber(Inspection& inspection, std::string_view number);

/// Checks the numbers of an expression for a flash command, in which all other words are names of memories.
void checkExpression(Inspection& inspection, std::string_view expression);

/// Checks a word for the target, which is an expression only when it has a value.
void checkTargetWord(Inspection& inspection, std::string_view word);

/// An address that no memory can have.
void checkAddress(Inspection& inspection, std::string_view address);

/// The value of an expression without names; none for another one.
[[nodiscard]] std::optional<std::uint64_t> numericValue(std::string_view expression);

/// A value by which expressions can be compared, also when they name memories; none when it has no value.
[[nodiscard]] std::optional<std::uint64_t> comparableValue(std::string_view expression);

} // namespace secapp
