#include "support/echo.h"

#include "support/streams.h"
#include "support/text.h"

#include <cstdarg>

namespace secapp {

int DEBUG = 0;

void print(std::uint32_t flags, const char* format, ...) {
    if ((flags & echoScriptMask) == 0)
        return;
    std::va_list arguments;
    va_start(arguments, format);
    writeText(stderr, formatArguments(format, arguments) + "\n");
    va_end(arguments);
}

void debug_print(const char* format, ...) {
    if (DEBUG == 0)
        return;
    std::va_list arguments;
    va_start(arguments, format);
    writeText(stderr, "DEBUG: " + formatArguments(format, arguments) + "\n");
    va_end(arguments);
}

} // namespace secapp
