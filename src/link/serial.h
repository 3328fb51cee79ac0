#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

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

/// One `read` of at most the size of `buffer`; returns the bytes read, 0, or -1 with the error number set.
[[nodiscard]] int serial_read(int handle, std::span<std::uint8_t> buffer);

/// One `write` of all bytes; returns the bytes written (possibly fewer), 0, or -1 with the error number set.
[[nodiscard]] int serial_write(int handle, std::span<const std::uint8_t> bytes);

/// Reads up to the end of a line (CR, LF or a zero byte) into `line`, behind what it already holds, so that a
/// line that arrives in parts is collected over several calls. Returns the characters of the line plus one
/// for its end. A line that fills `capacity` characters is reported and handed out as it stands. Returns -1
/// with EAGAIN once more than `timeout` ms of waiting have passed since the last byte, -1 with another error
/// number when the port fails, and 0 when `capacity` is below 1.
[[nodiscard]] int serial_readLine(int handle, std::string& line, int capacity, int timeout);

/// Waits until the port has input or fails, at most the given µs.
void serial_awaitInput(int handle, std::int64_t microseconds);

/// Waits until the port takes bytes or fails, at most the given ms. False when the time ran out.
[[nodiscard]] bool serial_awaitOutput(int handle, int milliseconds);

/// The error number of the last failing call, and the system's text for it.
[[nodiscard]] int serial_getError();
[[nodiscard]] std::string serial_get_error();

/// The VTIME (tenths of a second, default 0) and VMIN (bytes, default 1) of ports still to be opened.
[[nodiscard]] std::uint32_t getDefaultSerialReadTimeout();
void setDefaultSerialReadTimeout(std::uint32_t tenths);
[[nodiscard]] std::uint32_t getDefaultSerialReadMinRead();
void setDefaultSerialReadMinRead(std::uint32_t bytes);

/// The bytes of a text.
[[nodiscard]] inline std::span<const std::uint8_t> bytesOf(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

} // namespace secapp
