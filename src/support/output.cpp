#include "support/output.h"

#include <cstdio>
#include <cstdlib>

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
}

void finish(int status) {
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        std::perror("standard output");
        status = status == 0 ? -1 : status;
    }
    std::exit(status);
}

} // namespace secapp
