#pragma once

#include "link/timing.h"
#include "support/text.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include <poll.h>
#include <sys/types.h>
#include <termios.h>

namespace secapp {

/// A serial port and all that is known about it. The records of a run share one.
struct Port {
    Port() = default;
    Port(const Port&) = delete;
    Port& operator=(const Port&) = delete;
    /// Closes the port if it is open, as `serial_terminate` does.
    ~Port();

    /// Path of the device; none when it is not known.
    std::optional<std::string> deviceName = {};
    /// Descriptor, 0 while the port is not open.
    int handle = 0;
    /// The device's settings as found when it was opened.
    termios savedSettings{};
    /// The number of the last error. It is EAGAIN after a time-out and while there is nothing to read.
    int error = 0;
    /// Non-zero once the handshake has failed: the port is not opened again.
    std::int32_t linkError = 0;
    /// Why nothing may be sent any more: the text of the lost answer or the incomplete write.
    ErrorText connectionError = {};
    /// The device is gone, and the user was told.
    bool gone = false;
    /// The time of the last write.
    TimePoint written = {};
    /// Whether only line ends were received since the last write.
    bool answerPending = false;
    /// Whether the last answer began soon enough for a busy-wait for the next one.
    bool answersQuickly = true;
    /// VMIN in bytes. `poll` does not report fewer.
    cc_t minRead = 1;
};

/// Opens the port's device raw (38400 baud, 8N1, RTS/CTS, non-blocking) with `vtime` and `vmin` as the VTIME
/// and VMIN control characters, and saves the settings found. A device that cannot be opened, is not a
/// terminal or is locked by another process ends the program with status 255 and the system's message. A port
/// that is still open when the program exits gets its settings back then.
void serial_init(Port& port, int vtime, int vmin);

/// Gives the port its saved settings back and closes it.
void serial_terminate(Port& port);

/// One `read` of at most the size of `buffer`; returns the number of bytes read, 0, or -1.
[[nodiscard]] int serial_read(Port& port, std::span<std::uint8_t> buffer);

/// One `write` of all bytes; returns the number written (possibly fewer), 0, or -1.
[[nodiscard]] int serial_write(Port& port, std::span<const std::uint8_t> bytes);

/// How the wait for a line ended: with a line, without one in time, or because the port failed.
enum class LineEnd { line, timedOut, failed };

/// Reads up to the end of a line (CR, LF or a zero byte) and appends to `line`, so that a line that arrives
/// in parts is collected over several calls. A line that fills `capacity` characters is reported and counts
/// as ended. Waits until `deadline`, then as long as bytes follow each other within 2 ms, but not after
/// `limit`.
[[nodiscard]] LineEnd serial_readLine(Port& port, std::string& line, std::size_t capacity, TimePoint deadline,
                                      TimePoint limit);

/// Waits until the port takes bytes or fails. False at `deadline`.
[[nodiscard]] bool serial_awaitOutput(const Port& port, TimePoint deadline);

/// The number of the port's last error, and the system's text for it.
[[nodiscard]] int serial_getError(const Port& port);
[[nodiscard]] std::string serial_get_error(const Port& port);

/// The VTIME (tenths of a second, default 0) and VMIN (bytes, default 1) of ports that are opened later.
[[nodiscard]] std::uint32_t getDefaultSerialReadTimeout();
void setDefaultSerialReadTimeout(std::uint32_t tenths);
[[nodiscard]] std::uint32_t getDefaultSerialReadMinRead();
void setDefaultSerialReadMinRead(std::uint32_t bytes);

/// The system calls on an open port. Tests and fuzzers replace them.
struct PortCalls {
    ssize_t (*read)(int handle, void* buffer, std::size_t size);
    ssize_t (*write)(int handle, const void* bytes, std::size_t size);
    int (*poll)(pollfd* port, nfds_t count, const timespec* limit, const sigset_t* mask);
    /// Sets `bytes` to the number of received bytes that were not read yet.
    int (*waiting)(int handle, int& bytes);
};
extern const PortCalls systemPortCalls;
void setPortCalls(const PortCalls& calls);

} // namespace secapp
