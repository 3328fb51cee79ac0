#include "link/serial.h"

#include "link/port_lock.h"
#include "link/timing.h"
#include "support/echo.h"
#include "support/text.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace secapp {
namespace {

constexpr std::int64_t microsecondsPerMillisecond = 1000;

/// What an empty read counts against the line reader's time-out, in µs: on a port that says "try again" and
/// on one that says "no bytes".
constexpr std::int64_t shortStep = 10;
constexpr std::int64_t longStep = 1000;

/// An answer that begins within this many µs of the write is awaited without sleeping: falling asleep and
/// waking up would take as long as the answer.
constexpr std::int64_t quickAnswer = 60;

/// What the last writes tell of how soon an answer begins.
struct TurnAround {
    timeval written;
    bool pending; ///< no byte has come since the last write
    bool quick;   ///< the last answer began within `quickAnswer`
};

struct OpenPort {
    int handle;
    std::string path;
    std::shared_ptr<termios> savedSettings;
    dev_t device;
    ino_t node;
    bool lost;
};

std::uint32_t defaultSerialReadTimeout = 0;
std::uint32_t defaultSerialReadMinRead = 1;

std::vector<OpenPort> openPorts;

TurnAround turnAround{.written = {}, .pending = false, .quick = true};

void restoreOpenPorts() {
    // Backwards: a port opened twice must end with the settings found first.
    for (auto port = openPorts.rbegin(); port != openPorts.rend(); ++port)
        ::tcsetattr(port->handle, TCSANOW, port->savedSettings.get());
}

[[noreturn]] void refusePort(const char* path, int handle) {
    const bool busy = errno == EBUSY && handle >= 0;
    std::perror(path);
    if (busy) {
        if (const std::optional<std::string> holder = deviceHolder(handle))
            writeText(stderr, formatText("Held by %s\n", holder->c_str()));
    }
    std::exit(-1);
}

bool isOpenHere(const struct stat& status) {
    return std::any_of(openPorts.begin(), openPorts.end(), [&](const OpenPort& port) {
        return port.device == status.st_dev && port.node == status.st_ino;
    });
}

void rememberPort(int handle, const char* path, const std::shared_ptr<termios>& savedSettings,
                  const struct stat& status) {
    static const bool registered = std::atexit(restoreOpenPorts) == 0;
    if (registered)
        openPorts.push_back({handle, path, savedSettings, status.st_dev, status.st_ino, false});
}

termios rawSettings(int vtime, int vmin) {
    termios settings{};
    settings.c_iflag = BRKINT | IGNPAR | ICRNL;
    settings.c_cflag = B38400 | CS8 | CREAD | CLOCAL | CRTSCTS;
    settings.c_cc[VEOF] = 4;
    settings.c_cc[VTIME] = static_cast<cc_t>(vtime);
    settings.c_cc[VMIN] = static_cast<cc_t>(vmin);
    return settings;
}

/// Says once that the device has vanished, when the last call on the port failed in that way.
void noticeLoss(int handle) {
    const int error = errno;
    if (error != EIO && error != ENODEV && error != ENXIO)
        return;
    for (OpenPort& port : openPorts) {
        if (port.handle == handle && !port.lost) {
            port.lost = true;
            writeText(stderr, formatText("Device %s is gone\n", port.path.c_str()));
        }
    }
    errno = error;
}

/// Waits for the events on the port, at most the given µs; returns those that came.
short awaitEvents(int handle, short events, std::int64_t microseconds) {
    const timespec limit{.tv_sec = microseconds / 1000000, .tv_nsec = microseconds % 1000000 * 1000};
    pollfd port{.fd = handle, .events = events, .revents = 0};
    ::ppoll(&port, 1, &limit, nullptr);
    return port.revents;
}

void noteTurnAround() {
    const timeval waited = elapsedSince(turnAround.written);
    turnAround.quick = waited.tv_sec == 0 && waited.tv_usec < quickAnswer;
}

/// After a byte of a line; line ends alone may still belong to the answer before.
void noteAnswer() {
    if (turnAround.pending)
        noteTurnAround();
    turnAround.pending = false;
}

/// Spends the time after a write in which a quick answer may begin, awake; a slow target pays for it once.
/// Asks for the number of bytes, because an empty read would sleep until the kernel's own worker has run.
void awaitQuickAnswer(int handle) {
    int waiting = 0;
    while (turnAround.pending && turnAround.quick && waiting == 0) {
        noteTurnAround();
        if (::ioctl(handle, FIONREAD, &waiting) != 0)
            return;
    }
}

/// Waits for a byte after an empty read, in one wait for all of `left`, the µs that the caller would still
/// sleep before it gives up: each of many short sleeps costs more time than the quickest target takes to
/// answer. Returns the µs that count as slept.
std::int64_t awaitByte(int handle, std::int64_t left, bool& hungUp) {
    const timeval start = currentTime();
    const short events = awaitEvents(handle, POLLIN, left);
    hungUp = (events & (POLLHUP | POLLERR | POLLNVAL)) != 0;
    const timeval waited = elapsedSince(start);
    return events == 0 ? left
                       : std::min(left, static_cast<std::int64_t>(waited.tv_sec) * 1000000 + waited.tv_usec);
}

void traceByte(std::uint8_t byte) {
    if (DEBUG == 0)
        return;
    const char c = static_cast<char>(byte);
    if (byte >= 0x20 && byte < 0x7F)
        debug_print("Read [%d] '%.*s' %d", 1, 1, &c, byte);
    else if (c == '\r' || c == '\n')
        debug_print("Read [%d] '\\%c%s' %d", 1, c == '\r' ? 'r' : 'n', "", byte);
    else
        debug_print("Read [%d] '\\%02X%s' %d", 1, static_cast<unsigned>(byte), "", byte);
}

} // namespace

int serial_init(const char* path, std::shared_ptr<termios>& savedSettings, int vtime, int vmin) {
    if (!savedSettings)
        savedSettings = std::make_shared<termios>();
    debug_print("init: opening %s", path);
    const int handle = ::open(path, O_RDWR | O_NOCTTY | O_NONBLOCK);
    struct stat status {};
    // Bytes must never go into a file that was named by mistake.
    if (handle < 0 || ::isatty(handle) == 0 || ::fstat(handle, &status) != 0)
        refusePort(path, -1);
    if (!isOpenHere(status) && !lockDevice(handle))
        refusePort(path, handle);
    debug_print("open: handle=%d", handle);
    // The waits below are of some µs; by default the kernel adds 50 to each.
    ::prctl(PR_SET_TIMERSLACK, 1UL);

    debug_print("init: tcgetattr");
    ::tcgetattr(handle, savedSettings.get());
    rememberPort(handle, path, savedSettings, status);
    const termios settings = rawSettings(vtime, vmin);
    debug_print("init: tcflush");
    ::tcflush(handle, TCIFLUSH);
    debug_print("init: tcsetattr");
    ::tcsetattr(handle, TCSANOW, &settings);
    return handle;
}

void serial_terminate(int handle, const std::shared_ptr<termios>& savedSettings) {
    debug_print("terminate: tcsetattr+close");
    ::tcsetattr(handle, TCSANOW, savedSettings.get());
    ::close(handle);
    std::erase_if(openPorts, [&](const OpenPort& port) { return port.handle == handle; });
}

int serial_read(int handle, std::span<std::uint8_t> buffer) {
    return static_cast<int>(::read(handle, buffer.data(), buffer.size()));
}

int serial_write(int handle, std::span<const std::uint8_t> bytes) {
    if (DEBUG != 0) {
        const bool endsInReturn = !bytes.empty() && bytes.back() == '\r';
        const int shown = static_cast<int>(bytes.size()) - (endsInReturn ? 1 : 0);
        debug_print("Write [%d] '%.*s%s'", static_cast<int>(bytes.size()), shown,
                    reinterpret_cast<const char*>(bytes.data()), endsInReturn ? "\\r" : "");
    }
    const int written = static_cast<int>(::write(handle, bytes.data(), bytes.size()));
    if (written < 0)
        noticeLoss(handle);
    turnAround.written = currentTime();
    turnAround.pending = true;
    return written;
}

int serial_readLine(int handle, std::string& line, int capacity, int timeout) {
    if (capacity < 1)
        return 0;
    const std::int64_t limit = (static_cast<std::int64_t>(timeout) + 1) * microsecondsPerMillisecond;
    std::int64_t waited = 0;
    bool hungUp = false;
    for (;;) {
        awaitQuickAnswer(handle);
        std::uint8_t byte = 0;
        errno = 0;
        const int got = serial_read(handle, {&byte, 1});
        if (got == 0 && hungUp)
            errno = EIO;
        if (got < 1 && errno != EAGAIN && (got < 0 || hungUp)) {
            debug_print("READLINE %d - error %d '%s'", 1, errno, std::strerror(errno));
            noticeLoss(handle);
            return -1;
        }
        if (got < 1) {
            const std::int64_t step = got < 0 ? shortStep : longStep;
            waited += step;
            if (waited >= limit) {
                errno = EAGAIN;
                return -1;
            }
            // The sleep of this step is already counted.
            waited += std::max<std::int64_t>(awaitByte(handle, limit - waited, hungUp) - step, 0);
            continue;
        }
        traceByte(byte);
        if (byte == '\n' || byte == '\r' || byte == '\0')
            return static_cast<int>(line.size()) + 1;
        noteAnswer();
        line += static_cast<char>(byte);
        if (line.size() >= static_cast<std::size_t>(capacity)) {
            writeText(stderr, "Line exceeded buffer:" + line + "\n");
            return static_cast<int>(line.size());
        }
        waited = 0;
    }
}

void serial_awaitInput(int handle, std::int64_t microseconds) {
    // With VMIN above 1 the kernel keeps quiet about fewer bytes than that, which a read would hand out.
    if (static_cast<cc_t>(defaultSerialReadMinRead) > 1)
        microseconds = std::min(microseconds, microsecondsPerMillisecond);
    awaitEvents(handle, POLLIN, microseconds);
}

bool serial_awaitOutput(int handle, int milliseconds) {
    return awaitEvents(handle, POLLOUT, milliseconds * microsecondsPerMillisecond) != 0;
}

int serial_getError() {
    return errno;
}

std::string serial_get_error() {
    return std::strerror(errno);
}

std::uint32_t getDefaultSerialReadTimeout() {
    return defaultSerialReadTimeout;
}

void setDefaultSerialReadTimeout(std::uint32_t tenths) {
    defaultSerialReadTimeout = tenths;
}

std::uint32_t getDefaultSerialReadMinRead() {
    return defaultSerialReadMinRead;
}

void setDefaultSerialReadMinRead(std::uint32_t bytes) {
    defaultSerialReadMinRead = bytes;
}

} // namespace secapp
