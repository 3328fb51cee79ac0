#include "support/streams.h"

#include "support/text.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <stdexcept>

#include <fcntl.h>
#include <unistd.h>

namespace secapp {
namespace {

/// The error number of the first output that was lost, 0 while none was.
int outputError = 0;

void openStandardStreams() {
    // Opened as a directory without access, so that its use fails, also as /dev/stdin. open() takes the
    // lowest free descriptor, which is the closed one.
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (::fcntl(descriptor, F_GETFD) < 0)
            (void)::open("/", O_PATH);
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
}

/// Called after each write. The result of a write does not show whether a line that fits the buffer was lost;
/// the stream's error indicator does.
void recordOutputError() {
    if (outputError == 0 && std::ferror(stdout) != 0)
        outputError = errno;
}

} // namespace

void writeText(std::FILE* stream, std::string_view text) {
    if (stream == stderr)
        flushOutput();
    std::fwrite(text.data(), 1, text.size(), stream);
    recordOutputError();
}

void flushOutput() {
    std::fflush(stdout);
    recordOutputError();
}

bool errorsGoToTerminal() {
    return ::isatty(STDERR_FILENO) != 0;
}

void exitProgram(int status) {
    flushOutput();
    if (outputError != 0) {
        writeText(stderr, formatText("standard output: %s\n", std::strerror(outputError)));
        status = status == 0 ? -1 : status;
    }
    std::exit(status);
}

void runProgram(void (*program)(int argc, char** argv), int argc, char** argv, int failure) {
    try {
        openStandardStreams();
        program(argc, argv);
    } catch (const std::bad_alloc&) {
        writeText(stderr, "Out of memory\n");
    } catch (const std::length_error&) {
        writeText(stderr, "Out of memory: a length is beyond the limits of this host\n");
    } catch (const std::exception& error) {
        writeText(stderr, formatText("Internal error: %s\n", error.what()));
    }
    std::exit(failure);
}

} // namespace secapp
