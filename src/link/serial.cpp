#include "link/serial.h"

#include "link/port_access.h"
#include "support/echo.h"
#include "support/streams.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace secapp {
namespace {

/// How long to busy-wait for an answer after a write. Sleeping and waking up would take as long as a quick
/// answer.
constexpr auto busyWaitLimit = std::chrono::microseconds(60);

/// After its deadline, a wait continues until no byte is received for this time.
constexpr auto longestPause = std::chrono::milliseconds(2);

struct Settings {
    std::uint32_t readTimeout = 0;
    std::uint32_t minRead = 1;
} settings;

PortCalls portCalls = systemPortCalls;

/// The ports that get their settings back when the program exits.
std::vector<Port*> openPorts;

void restoreOpenPorts() {
    // In reverse order: a device opened twice must end with the settings found first.
    for (auto port = openPorts.rbegin(); port != openPorts.rend(); ++port)
        ::tcsetattr((*port)->handle, TCSANOW, &(*port)->savedSettings);
}

void restoreAtExit(Port& port) {
    static const bool registered = std::atexit(restoreOpenPorts) == 0;
    if (registered)
        openPorts.push_back(&port);
}

[[noreturn]] void refusePort(const Port& port, int error) {
    const char* const path = port.deviceName->c_str();
    writeText(stderr, formatText("%s: %s\n", path, std::strerror(error)));
    if (error == EACCES && errorsGoToTerminal()) {
        if (const std::optional<std::string> group = deviceGroup(path))
            writeText(stderr, formatText("The device belongs to the group %s: join it, or run "
                                         "install_udev_rules\n",
                                         group->c_str()));
    }
    std::exit(-1);
}

[[noreturn]] void refuseHeldPort(const Port& port) {
    writeText(stderr, formatText("%s: %s\n", port.deviceName->c_str(), std::strerror(EBUSY)));
    if (const std::optional<std::string> holder = deviceHolder(port.handle))
        writeText(stderr, formatText("Held by %s\n", holder->c_str()));
    std::exit(-1);
}

/// Whether this process has already opened the device: then it holds the lock.
bool isOpenHere(const struct stat& device) {
    return std::any_of(
        openPorts.begin(), openPorts.end(),
        [&](const Port* port) {
            struct stat open {};
            return ::fstat(port->handle, &open) == 0 && open.st_dev == device.st_dev &&
                   open.st_ino == device.st_ino;
        });
}

void closePort(Port& port) {
    std::erase(openPorts, &port);
    ::tcsetattr(port.handle, TCSANOW, &port.savedSettings);
    ::close(std::exchange(port.handle, 0));
}

termios rawSettings(int vtime, int vmin) {
    termios raw{};
    raw.c_iflag = BRKINT | IGNPAR | ICRNL;
    raw.c_cflag = B38400 | CS8 | CREAD | CLOCAL | CRTSCTS;
    raw.c_cc[VEOF] = 4;
    raw.c_cc[VTIME] = static_cast<cc_t>(vtime);
    raw.c_cc[VMIN] = static_cast<cc_t>(vmin);
    return raw;
}

/// Tells the user once that the device is gone, if the last call on the port failed for that reason.
void reportDeviceGone(Port& port) {
    if (port.gone || !port.deviceName || (port.error != EIO && port.error != ENODEV && port.error != ENXIO))
        return;
    port.gone = true;
    writeText(stderr, formatText("Device %s is gone\n", port.deviceName->c_str()));
}

/// Makes a system call, again after an interruption by a signal, and stores its error number.
template <typename Call>
int callPort(Port& port, Call call) {
    ssize_t result = -1;
    do
        result = call();
    while (result < 0 && errno == EINTR);
    if (result < 0)
        port.error = errno;
    return static_cast<int>(result);
}

/// Waits for the events on the port, at most for the given time; returns those that occurred.
short awaitEvents(const Port& port, short events, Clock::duration time) {
    using std::chrono::nanoseconds;
    // `poll` does not report fewer bytes than VMIN, which a read would return.
    if (port.minRead > 1)
        time = std::min<Clock::duration>(time, std::chrono::milliseconds(1));
    const auto left = std::max(nanoseconds(time), nanoseconds::zero()).count();
    timespec limit{};
    limit.tv_sec = static_cast<decltype(limit.tv_sec)>(left / 1000000000);
    limit.tv_nsec = static_cast<decltype(limit.tv_nsec)>(left % 1000000000);
    pollfd wait{.fd = port.handle, .events = events, .revents = 0};
    portCalls.poll(&wait, 1, &limit, nullptr);
    return wait.revents;
}

/// Busy-waits for the answer to the last write, unless the answer before was slow. Asks for the number of
/// bytes, because an empty read sleeps until the kernel's worker has run. That worker carries the bytes and
/// runs on this processor, so it gets the processor between two checks.
void busyWaitForAnswer(Port& port) {
    int waiting = 0;
    while (port.answerPending && port.answersQuickly) {
        if (portCalls.waiting(port.handle, waiting) != 0 || waiting > 0)
            return;
        port.answersQuickly = Clock::now() - port.written < busyWaitLimit;
        ::sched_yield();
    }
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

/// Adds a byte to the line; true when the line has ended.
bool endsLine(Port& port, std::string& line, std::size_t capacity, std::uint8_t byte) {
    traceByte(byte);
    if (byte == '\n' || byte == '\r' || byte == '\0')
        return true;
    // Line ends before any other byte can still belong to the previous answer.
    if (port.answerPending)
        port.answersQuickly = Clock::now() - port.written < busyWaitLimit;
    port.answerPending = false;
    line += static_cast<char>(byte);
    if (line.size() < capacity)
        return false;
    writeText(stderr, "Line exceeded buffer:" + line + "\n");
    return true;
}

} // namespace

const PortCalls systemPortCalls = {
    .read = ::read,
    .write = ::write,
    .poll = ::ppoll,
    .waiting = [](int handle, int& bytes) { return ::ioctl(handle, FIONREAD, &bytes); },
};

Port::~Port() {
    if (handle != 0)
        closePort(*this);
}

void serial_init(Port& port, int vtime, int vmin) {
    debug_print("init: opening %s", port.deviceName->c_str());
    port.handle = ::open(port.deviceName->c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK);
    struct stat status {};
    if (port.handle < 0 || ::fstat(port.handle, &status) != 0)
        refusePort(port, errno);
    // No bytes may be written into a file that was named by mistake.
    const bool isTerminal = ::isatty(port.handle) != 0 || errno != ENOTTY;
    if (!isTerminal || !S_ISCHR(status.st_mode))
        refusePort(port, ENOTTY);
    if (!isOpenHere(status) && !lockDevice(port.handle))
        refuseHeldPort(port);
    debug_print("open: handle=%d", port.handle);
    // Waits on the port can last a few µs; by default the kernel adds 50 µs to each.
    ::prctl(PR_SET_TIMERSLACK, 1UL);

    debug_print("init: tcgetattr");
    ::tcgetattr(port.handle, &port.savedSettings);
    restoreAtExit(port);
    const termios raw = rawSettings(vtime, vmin);
    port.minRead = raw.c_cc[VMIN];
    debug_print("init: tcflush");
    ::tcflush(port.handle, TCIFLUSH);
    debug_print("init: tcsetattr");
    ::tcsetattr(port.handle, TCSANOW, &raw);
}

void serial_terminate(Port& port) {
    debug_print("terminate: tcsetattr+close");
    closePort(port);
}

int serial_read(Port& port, std::span<std::uint8_t> buffer) {
    return callPort(
        port, [&] { return portCalls.read(port.handle, buffer.data(), buffer.size()); });
}

int serial_write(Port& port, std::span<const std::uint8_t> bytes) {
    if (DEBUG != 0) {
        const bool endsInReturn = !bytes.empty() && bytes.back() == '\r';
        const int shown = static_cast<int>(bytes.size()) - (endsInReturn ? 1 : 0);
        debug_print("Write [%d] '%.*s%s'", static_cast<int>(bytes.size()), shown,
                    reinterpret_cast<const char*>(bytes.data()), endsInReturn ? "\\r" : "");
    }
    const int written =
        callPort(port, [&] { return portCalls.write(port.handle, bytes.data(), bytes.size()); });
    if (written < 0)
        reportDeviceGone(port);
    port.written = Clock::now();
    port.answerPending = true;
    return written;
}

LineEnd serial_readLine(Port& port, std::string& line, std::size_t capacity, TimePoint deadline,
                        TimePoint limit) {
    TimePoint pauseEnd; // none before the first empty read after a byte
    bool hungUp = false;
    for (;;) {
        busyWaitForAnswer(port);
        std::uint8_t byte = 0;
        const int got = serial_read(port, {&byte, 1});
        if (got > 0) {
            if (endsLine(port, line, capacity, byte))
                return LineEnd::line;
            pauseEnd = {};
            if (limit == TimePoint::max() || Clock::now() < limit)
                continue;
            port.error = EAGAIN;
            return LineEnd::timedOut;
        }
        if (got == 0)
            port.error = hungUp ? EIO : EAGAIN;
        if (port.error != EAGAIN) {
            debug_print("READLINE %d - error %d '%s'", 1, port.error, std::strerror(port.error));
            reportDeviceGone(port);
            return LineEnd::failed;
        }
        const TimePoint now = Clock::now();
        if (pauseEnd == TimePoint())
            pauseEnd = now + longestPause;
        const TimePoint end = std::min(limit, std::max(deadline, pauseEnd));
        if (now >= end)
            return LineEnd::timedOut;
        hungUp = (awaitEvents(port, POLLIN, end - now) & (POLLHUP | POLLERR | POLLNVAL)) != 0;
    }
}

bool serial_awaitOutput(const Port& port, TimePoint deadline) {
    for (TimePoint now = Clock::now(); now < deadline; now = Clock::now())
        if (awaitEvents(port, POLLOUT, deadline - now) != 0)
            return true;
    return false;
}

int serial_getError(const Port& port) {
    return port.error;
}

std::string serial_get_error(const Port& port) {
    return std::strerror(port.error);
}

std::uint32_t getDefaultSerialReadTimeout() {
    return settings.readTimeout;
}

void setDefaultSerialReadTimeout(std::uint32_t tenths) {
    settings.readTimeout = tenths;
}

std::uint32_t getDefaultSerialReadMinRead() {
    return settings.minRead;
}

void setDefaultSerialReadMinRead(std::uint32_t bytes) {
    settings.minRead = bytes;
}

void setPortCalls(const PortCalls& calls) {
    portCalls = calls;
}

} // namespace secapp
