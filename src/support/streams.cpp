#include "support/streams.h"

#include "support/text.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

namespace secapp {

void openStandardStreams() {
    // The lowest free descriptor is taken: the loop ends when it is none of the three.
    int descriptor = 0;
    while (descriptor >= 0 && descriptor <= STDERR_FILENO)
        descriptor = ::open("/dev/null", O_RDWR);
    if (descriptor > STDERR_FILENO)
        ::close(descriptor);
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
}

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

} // namespace secapp
