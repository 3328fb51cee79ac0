#pragma once

#include "checker/inspection.h"

#include <cstdint>

namespace secapp {

/// Reports a number of more than 32 bits and an octal one.
void checkNumber(Inspection& inspection, std::string_view number);

/// Checks the numbers of an expression in a flash command, where every other word is the name of a memory.
void checkExpression(Inspection& inspection, std::string_view expression);

/// Checks a word for the target if it is an expression without names.
void checkTargetWord(Inspection& inspection, std::string_view word);

/// As `checkExpression`; also reports an address that no memory can have.
void checkAddress(Inspection& inspection, std::string_view address);

/// The value of an expression without names; empty for others.
[[nodiscard]] std::optional<std::uint64_t> numericValue(std::string_view expression);

/// A value for comparisons: each name has an arbitrary one. Empty if the expression divides by zero.
[[nodiscard]] std::optional<std::uint64_t> comparableValue(std::string_view expression);

} // namespace secapp
