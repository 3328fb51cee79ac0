#pragma once

#include "support/text.h"

#include <cstdint>
#include <string_view>

namespace secapp {

/// Reads a number: hexadecimal after "0x" (in any case), octal after a leading "0", else decimal. `value`
/// always receives the low 32 bits of what could be converted; the error names the character at which
/// conversion stopped.
[[nodiscard]] ErrorText decode(std::string_view text, std::uint32_t& value);

/// As `decode`, but without `report` it returns no error: for answers that are searched for a number.
ErrorText decodeFull(std::string_view text, std::uint32_t& value, bool report);

} // namespace secapp
