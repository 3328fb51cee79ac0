#include "support/echo.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>

namespace secapp {

int DEBUG = 0;

void print(std::uint32_t flags, const char* format, ...) {
    if ((flags & echoScriptMask) == 0)
        return;
    std::va_list arguments;
    va_start(arguments, format);
    std::vfprintf(stderr, format, arguments);
    va_end(arguments);
    std::fputc('\n', stderr);
}

void debug_print(const char* format, ...) {
    if (DEBUG == 0)
        return;
    const int error = errno;
    std::va_list arguments;
    va_start(arguments, format);
    std::fputs("DEBUG: ", stderr);
    std::vfprintf(stderr, format, arguments);
    std::fputc('\n', stderr);
    va_end(arguments);
    errno = error;
}

} // namespace secapp
