#include "support/numbers.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace secapp {

ErrorText decodeFull(std::string_view text, std::uint32_t& value, bool report) {
    int base = 10;
    const char* baseName = "decimal";
    if (startsWithIgnoringCase(text, "0x")) {
        base = 16;
        baseName = "hex";
        text.remove_prefix(2);
    } else if (text.size() > 1 && text.front() == '0') {
        base = 8;
        baseName = "octal";
        text.remove_prefix(1);
    }

    const std::string digits(text);
    char* end = nullptr;
    errno = 0;
    value = static_cast<std::uint32_t>(std::strtoll(digits.c_str(), &end, base));
    const int error = errno;
    if (!report || (error == 0 && *end == '\0'))
        return std::nullopt;
    return formatError("Unable to decode value '%s' as %s (char=0x%x errno=%d - %s)", digits.c_str(),
                       baseName, static_cast<unsigned>(static_cast<signed char>(*end)), error,
                       std::strerror(error));
}

ErrorText decode(std::string_view text, std::uint32_t& value) {
    return decodeFull(text, value, true);
}

} // namespace secapp
