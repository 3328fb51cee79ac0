#include "link/serial.h"

#include "link/port_access.h"
#include "support/echo.h"
#include "support/streams.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace secapp {
namespace {

/// An answer that begins within this time of the write is awaited without sleeping: falling asleep and waking
/// up would take as long as the answer.
constexpr auto quickAnswer = std::chrono::microseconds(60);

struct OpenPort {
    int handle;
    std::string path;
    std::shared_ptr<termios> savedSettings;
    dev_t device;
    ino_t node;
    bool lost;
    ErrorText outOfStep;
};

struct Serial {
    PortCalls calls = systemPortCalls;
    int error = 0;
    std::uint32_t readTimeout = 0;
    std::uint32_t minRead = 1;
    std::vector<OpenPort> ports;
    /// What the last writes tell of how soon an answer begins: when the last one was, whether no byte has
    /// come since, and whether the last answer began within `quickAnswer`.
    TimePoint written;
    bool pending = false;
    bool quick = true;
} serial;

void restoreOpenPorts() {
    // Backwards: a port opened twice must end with the settings found first.
    for (auto port = serial.ports.rbegin(); port != serial.ports.rend(); ++port)
        ::tcsetattr(port->handle, TCSANOW, port->savedSettings.get());
}

[[noreturn]] void refusePort(const char* path, int error) {
    writeText(stderr, formatText("%s: %s\n", path, std::strerror(error)));
    if (error == EACCES && errorsGoToTerminal()) {
        if (const std::optional<std::string> group = deviceGroup(path))
            writeText(stderr, formatText("The device belongs to the group %s: join it, or run "
                                         "install_udev_rules\n",
                                         group->c_str()));
    }
    std::exit(-1);
}

[[noreturn]] void refuseHeldPort(const char* path, int handle) {
    writeText(stderr, formatText("%s: %s\n", path, std::strerror(EBUSY)));
    if (const std::optional<std::string> holder = deviceHolder(handle))
        writeText(stderr, formatText("Held by %s\n", holder->c_str()));
    std::exit(-1);
}

bool isOpenHere(const struct stat& status) {
    return std::any_of(
        serial.ports.begin(), serial.ports.end(),
        [&](const OpenPort& port) { return port.device == status.st_dev && port.node == status.st_ino; });
}

OpenPort* findPort(int handle) {
    const auto port = std::find_if(serial.ports.begin(), serial.ports.end(),
                                   [=](const OpenPort& open) { return open.handle == handle; });
    return port == serial.ports.end() ? nullptr : &*port;
}

void rememberPort(int handle, const char* path, const std::shared_ptr<termios>& savedSettings,
                  const struct stat& status) {
    static const bool registered = std::atexit(restoreOpenPorts) == 0;
    if (registered)
        serial.ports.push_back({handle, path, savedSettings, status.st_dev, status.st_ino, false, {}});
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
    if (serial.error != EIO && serial.error != ENODEV && serial.error != ENXIO)
        return;
    OpenPort* const port = findPort(handle);
    if (port == nullptr || port->lost)
        return;
    port->lost = true;
    writeText(stderr, formatText("Device %s is gone\n", port->path.c_str()));
}

/// The result of a call, whose error is kept; one that a signal interrupted is made again.
template <typename Call>
int callPort(Call call) {
    ssize_t result = -1;
    do
        result = call();
    while (result < 0 && errno == EINTR);
    if (result < 0)
        serial.error = errno;
    return static_cast<int>(result);
}

/// Waits for the events on the port, at most for the given time; returns those that came.
short awaitEvents(int handle, short events, Clock::duration time) {
    using std::chrono::nanoseconds;
    const auto left = std::max(nanoseconds(time), nanoseconds::zero()).count();
    timespec limit{};
    limit.tv_sec = static_cast<decltype(limit.tv_sec)>(left / 1000000000);
    limit.tv_nsec = static_cast<decltype(limit.tv_nsec)>(left % 1000000000);
    pollfd port{.fd = handle, .events = events, .revents = 0};
    serial.calls.poll(&port, 1, &limit, nullptr);
    return port.revents;
}

/// After a byte of a line; line ends alone may still belong to the answer before.
void noteAnswer() {
    if (serial.pending)
        serial.quick = Clock::now() - serial.written < quickAnswer;
    serial.pending = false;
}

/// Spends the time after a write in which a quick answer may begin, awake; a slow target pays for it once.
/// Asks for the number of bytes, because an empty read would sleep until the kernel's own worker has run.
void awaitQuickAnswer(int handle) {
    int waiting = 0;
    while (serial.pending && serial.quick && waiting == 0) {
        serial.quick = Clock::now() - serial.written < quickAnswer;
        if (serial.calls.waiting(handle, waiting) != 0)
            return;
    }
}

/// The wait of the line reader for a byte.
struct ByteWait {
    Clock::duration patience;
    TimePoint deadline = {}; ///< of the byte that is awaited, 0 while none is
    bool hungUp = false;
};

/// Waits after a read that gave no byte; false when the time is over or the port has failed.
bool awaitByte(int handle, int got, ByteWait& wait) {
    if (got == 0)
        serial.error = wait.hungUp ? EIO : EAGAIN;
    if (!serial_timedOut()) {
        debug_print("READLINE %d - error %d '%s'", 1, serial.error, std::strerror(serial.error));
        noticeLoss(handle);
        return false;
    }
    const TimePoint now = Clock::now();
    if (wait.deadline == TimePoint())
        wait.deadline = now + wait.patience;
    if (now >= wait.deadline)
        return false;
    // One wait for all the time that is left: each of many short sleeps costs more time than the quickest
    // target takes to answer.
    const short events = awaitEvents(handle, POLLIN, wait.deadline - now);
    wait.hungUp = (events & (POLLHUP | POLLERR | POLLNVAL)) != 0;
    return true;
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

const PortCalls systemPortCalls = {
    .read = ::read,
    .write = ::write,
    .poll = ::ppoll,
    .waiting = [](int handle, int& bytes) { return ::ioctl(handle, FIONREAD, &bytes); },
};

int serial_init(const char* path, std::shared_ptr<termios>& savedSettings, int vtime, int vmin) {
    if (!savedSettings)
        savedSettings = std::make_shared<termios>();
    debug_print("init: opening %s", path);
    const int handle = ::open(path, O_RDWR | O_NOCTTY | O_NONBLOCK);
    struct stat status {};
    if (handle < 0 || ::fstat(handle, &status) != 0)
        refusePort(path, errno);
    // Bytes must never go into a file that was named by mistake.
    const bool isTerminal = ::isatty(handle) != 0 || errno != ENOTTY;
    if (!isTerminal || !S_ISCHR(status.st_mode))
        refusePort(path, ENOTTY);
    if (!isOpenHere(status) && !lockDevice(handle))
        refuseHeldPort(path, handle);
    debug_print("open: handle=%d", handle);
    // Waits on the port may be of some µs; by default the kernel adds 50 to each.
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
    std::erase_if(serial.ports, [=](const OpenPort& port) { return port.handle == handle; });
}

int serial_read(int handle, std::span<std::uint8_t> buffer) {
    return callPort([&] { return serial.calls.read(handle, buffer.data(), buffer.size()); });
}

int serial_write(int handle, std::span<const std::uint8_t> bytes) {
    if (DEBUG != 0) {
        const bool endsInReturn = !bytes.empty() && bytes.back() == '\r';
        const int shown = static_cast<int>(bytes.size()) - (endsInReturn ? 1 : 0);
        debug_print("Write [%d] '%.*s%s'", static_cast<int>(bytes.size()), shown,
                    reinterpret_cast<const char*>(bytes.data()), endsInReturn ? "\\r" : "");
    }
    const int written = callPort([&] { return serial.calls.write(handle, bytes.data(), bytes.size()); });
    if (written < 0)
        noticeLoss(handle);
    serial.written = Clock::now();
    serial.pending = true;
    return written;
}

int serial_readLine(int handle, std::string& line, int capacity, int timeout,
                    const std::optional<TimePoint>& until) {
    if (capacity < 1)
        return 0;
    ByteWait wait{.patience = std::chrono::milliseconds(timeout) + std::chrono::milliseconds(1)};
    for (;;) {
        awaitQuickAnswer(handle);
        std::uint8_t byte = 0;
        const int got = serial_read(handle, {&byte, 1});
        if (got < 1) {
            if (!awaitByte(handle, got, wait))
                return -1;
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
        if (until && Clock::now() >= *until) {
            serial.error = EAGAIN;
            return -1;
        }
        wait.deadline = TimePoint();
    }
}

void serial_awaitInput(int handle, Clock::duration time) {
    // With VMIN above 1 the kernel keeps quiet about fewer bytes than that, which a read would hand out.
    if (static_cast<cc_t>(serial.minRead) > 1)
        time = std::min<Clock::duration>(time, std::chrono::milliseconds(1));
    awaitEvents(handle, POLLIN, time);
}

bool serial_awaitOutput(int handle, TimePoint deadline) {
    for (TimePoint now = Clock::now(); now < deadline; now = Clock::now())
        if (awaitEvents(handle, POLLOUT, deadline - now) != 0)
            return true;
    return false;
}

int serial_getError() {
    return serial.error;
}

std::string serial_get_error() {
    return std::strerror(serial.error);
}

bool serial_timedOut() {
    return serial.error == EAGAIN;
}

void serial_noteError(int number) {
    serial.error = number;
}

ErrorText serial_outOfStep(int handle) {
    const OpenPort* const port = findPort(handle);
    return port == nullptr ? std::nullopt : port->outOfStep;
}

void serial_setOutOfStep(int handle, const std::string& failure) {
    if (OpenPort* const port = findPort(handle))
        port->outOfStep = failure;
}

std::uint32_t getDefaultSerialReadTimeout() {
    return serial.readTimeout;
}

void setDefaultSerialReadTimeout(std::uint32_t tenths) {
    serial.readTimeout = tenths;
}

std::uint32_t getDefaultSerialReadMinRead() {
    return serial.minRead;
}

void setDefaultSerialReadMinRead(std::uint32_t bytes) {
    serial.minRead = bytes;
}

void setPortCalls(const PortCalls& calls) {
    serial.calls = calls;
}

} // namespace secapp
