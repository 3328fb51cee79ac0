#include "memory_port.h"

#include "link/serial.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace fuzzing {
namespace {

void execute(const vqxsim::Request& request) {
    memoryPort().toHost += vqxsim::execute(memoryPort().firmware, request).text;
}

} // namespace

MemoryPort& memoryPort() {
    static MemoryPort port;
    return port;
}

} // namespace fuzzing

/// Sleeping would only cost time.
extern "C" int usleep(useconds_t /*microseconds*/) {
    return 0;
}

namespace secapp {

using fuzzing::memoryPort;

int serial_init(const char* /*path*/, std::shared_ptr<termios>& savedSettings, int /*vtime*/, int /*vmin*/) {
    if (!savedSettings)
        savedSettings = std::make_shared<termios>();
    return 1;
}

void serial_terminate(int /*handle*/, const std::shared_ptr<termios>& /*savedSettings*/) {}

int serial_read(int /*handle*/, std::span<std::uint8_t> buffer) {
    std::string& waiting = memoryPort().toHost;
    const std::size_t count = std::min(buffer.size(), waiting.size());
    std::memcpy(buffer.data(), waiting.data(), count);
    waiting.erase(0, count);
    return static_cast<int>(count);
}

int serial_write(int /*handle*/, std::span<const std::uint8_t> bytes) {
    const std::size_t written = std::min(bytes.size(), memoryPort().writeLimit);
    memoryPort().toHost +=
        vqxsim::converse(memoryPort().firmware, {reinterpret_cast<const char*>(bytes.data()), written});
    return static_cast<int>(written);
}

int serial_readLine(int /*handle*/, std::string& line, int capacity, int /*timeout*/) {
    std::string& waiting = memoryPort().toHost;
    if (waiting.empty() && vqxsim::patience(memoryPort().firmware))
        fuzzing::execute(vqxsim::endSilence(memoryPort().firmware));
    const std::size_t limit = static_cast<std::size_t>(capacity) - line.size();
    const std::size_t end = std::min(waiting.find_first_of(std::string_view("\r\n\0", 3)), waiting.size());
    const std::size_t length = std::min(end, limit);
    line.append(waiting, 0, length);
    const bool ended = length == end && end < waiting.size();
    waiting.erase(0, length + (ended ? 1 : 0));
    if (ended)
        return static_cast<int>(line.size()) + 1;
    if (length == limit)
        return static_cast<int>(line.size());
    errno = EIO;
    return -1;
}

void serial_awaitInput(int /*handle*/, std::int64_t /*microseconds*/) {}

bool serial_awaitOutput(int /*handle*/, int /*milliseconds*/) {
    return true;
}

int serial_getError() {
    return errno;
}

std::string serial_get_error() {
    return std::strerror(errno);
}

std::uint32_t getDefaultSerialReadTimeout() {
    return 0;
}

void setDefaultSerialReadTimeout(std::uint32_t /*tenths*/) {}

std::uint32_t getDefaultSerialReadMinRead() {
    return 1;
}

void setDefaultSerialReadMinRead(std::uint32_t /*bytes*/) {}

} // namespace secapp
