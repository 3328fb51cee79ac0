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

void openStandardStreams() {
    // The lowest free descriptor is taken: the loop ends when it is none of the three.
    int descriptor = 0;
    while (descriptor >= 0 && descriptor <= STDERR_FILENO)
        descriptor = ::open("/dev/null", O_RDWR);
    if (descriptor > STDERR_FILENO)
        ::close(descriptor);
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
}

} // namespace

void writeText(std::FILE* stream, std::string_view text) {
    if (stream == stderr)
        std::fflush(stdout);
    std::fwrite(text.data(), 1, text.size(), stream);
}

std::optional<std::string> readTextLine(std::FILE* stream) {
    std::string line;
    int c = 0;
    while (line.size() < textLimit && (c = std::fgetc(stream)) != EOF) {
        line += static_cast<char>(c);
        if (c == '\n')
            return line;
    }
    if (line.empty() || (c == EOF && std::ferror(stream) != 0))
        return std::nullopt;
    return line;
}

void finish(int status) {
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        writeText(stderr, formatText("standard output: %s\n", std::strerror(errno)));
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
        writeText(stderr, "Out of memory: this machine cannot hold so much at once\n");
    } catch (const std::exception& error) {
        writeText(stderr, formatText("Internal error: %s\n", error.what()));
    }
    std::exit(failure);
}

} // namespace secapp
