#include "memory_port.h"

#include "fuzz.h"

#include "link/serial.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>

namespace fuzzing {
namespace {

ssize_t readPort(int /*handle*/, void* buffer, std::size_t size) {
    MemoryPort& port = memoryPort();
    if (port.taken == port.toHost.size()) {
        port.taken = 0;
        port.toHost.clear();
        if (vqxsim::silenceTimeout(port.firmware))
            port.toHost = vqxsim::execute(port.firmware, vqxsim::requestAfterSilence(port.firmware)).text;
    }
    const std::size_t count = std::min(size, port.toHost.size() - port.taken);
    if (count == 0) {
        errno = EIO;
        return -1;
    }
    std::memcpy(buffer, port.toHost.data() + port.taken, count);
    port.taken += count;
    // As a port with ICRNL does.
    std::replace_if(
        static_cast<char*>(buffer), static_cast<char*>(buffer) + count, [](char c) { return c == '\r'; },
        '\n');
    return static_cast<ssize_t>(count);
}

ssize_t writePort(int /*handle*/, const void* bytes, std::size_t size) {
    const std::size_t written = std::min(size, memoryPort().writeLimit);
    memoryPort().toHost +=
        vqxsim::exchangeBytes(memoryPort().firmware, {static_cast<const char*>(bytes), written});
    return static_cast<ssize_t>(written);
}

int pollPort(pollfd* port, nfds_t /*count*/, const timespec* /*limit*/, const sigset_t* /*mask*/) {
    port->revents = port->events;
    return 1;
}

int waitingBytes(int /*handle*/, int& bytes) {
    bytes = 1; // so that secapp reads without waiting
    return 0;
}

} // namespace

MemoryPort& memoryPort() {
    static MemoryPort port;
    return port;
}

const char* memoryDevice() {
    // Sleeping would only cost time.
    secapp::setClockCalls({.now = secapp::systemClockCalls.now, .sleep = [](std::uint32_t) {}});
    secapp::setPortCalls({.read = readPort, .write = writePort, .poll = pollPort, .waiting = waitingBytes});
    // A terminal of this process, because secapp locks it.
    static const int terminal = ::posix_openpt(O_RDWR | O_NOCTTY);
    require(::grantpt(terminal) == 0 && ::unlockpt(terminal) == 0, "there is a terminal to open");
    return ::ptsname(terminal);
}

} // namespace fuzzing
