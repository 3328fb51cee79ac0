#pragma once

#include "link/timing.h"
#include "support/text.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include <poll.h>
#include <sys/types.h>
#include <termios.h>

namespace secapp {

/// Opens the device raw (38400 baud, 8N1, RTS/CTS, non-blocking) with `vtime` and `vmin` as the VTIME and
/// VMIN control characters, and keeps the settings found in `savedSettings`, which is allocated when empty.
/// Returns the descriptor. A device that cannot be opened, is no terminal or is held by another host ends the
/// program with status 255 and the system's message. A port that is still open when the program exits gets
/// its settings back then.
[[nodiscard]] int serial_init(const char* path, std::shared_ptr<termios>& savedSettings, int vtime, int vmin);

/// Gives the port its saved settings back and closes it.
void serial_terminate(int handle, const std::shared_ptr<termios>& savedSettings);

/// One `read` of at most the size of `buffer`; returns the bytes read, 0, or -1.
[[nodiscard]] int serial_read(int handle, std::span<std::uint8_t> buffer);

/// One `write` of all bytes; returns the bytes written (possibly fewer), 0, or -1.
[[nodiscard]] int serial_write(int handle, std::span<const std::uint8_t> bytes);

/// Reads up to the end of a line (CR, LF or a zero byte) into `line`, behind what it already holds, so that a
/// line that arrives in parts is collected over several calls. Returns the characters of the line plus one
/// for its end. A line that fills `capacity` characters is reported and handed out as it stands. Returns -1
/// when no byte came for more than `timeout` ms, when `until` has passed and when the port fails, and 0 when
/// `capacity` is below 1.
[[nodiscard]] int serial_readLine(int handle, std::string& line, int capacity, int timeout,
                                  const std::optional<TimePoint>& until = {});

/// Waits until the port has input or fails, at most for the given time.
void serial_awaitInput(int handle, Clock::duration time);

/// Waits until the port takes bytes or fails. False when `deadline` came first.
[[nodiscard]] bool serial_awaitOutput(int handle, TimePoint deadline);

/// The link's one error: the number that its last failing call left, the system's text for it, and whether it
/// says that time ran out or nothing was there, and not that the port failed.
[[nodiscard]] int serial_getError();
[[nodiscard]] std::string serial_get_error();
[[nodiscard]] bool serial_timedOut();

/// Notes a failure that no system call reports: a time-out, or a target that does not keep to the protocol.
void serial_noteError(int number);

/// Why nothing may be sent on the open port any more: the text of the failure that left host and target out
/// of step. None while they are in step.
[[nodiscard]] ErrorText serial_outOfStep(int handle);
void serial_setOutOfStep(int handle, const std::string& failure);

/// The VTIME (tenths of a second, default 0) and VMIN (bytes, default 1) of ports still to be opened.
[[nodiscard]] std::uint32_t getDefaultSerialReadTimeout();
void setDefaultSerialReadTimeout(std::uint32_t tenths);
[[nodiscard]] std::uint32_t getDefaultSerialReadMinRead();
void setDefaultSerialReadMinRead(std::uint32_t bytes);

/// The system calls on an open port, the last one the number of bytes that wait. Tests and fuzzers put others
/// in their place.
struct PortCalls {
    ssize_t (*read)(int handle, void* buffer, std::size_t size);
    ssize_t (*write)(int handle, const void* bytes, std::size_t size);
    int (*poll)(pollfd* port, nfds_t count, const timespec* limit, const sigset_t* mask);
    int (*waiting)(int handle, int& bytes);
};
extern const PortCalls systemPortCalls;
void setPortCalls(const PortCalls& calls);

} // namespace secapp
