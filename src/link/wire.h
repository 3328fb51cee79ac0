#pragma once

#include "link/handler_data.h"
#include "support/text.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include <sys/time.h>

namespace secapp {

/// The conversation on a port that is open already. `link/protocol.h` opens it on first use.

/// The longest line of an answer; a longer one arrives in pieces.
inline constexpr int answerLineLimit = 16384;

/// How much text one script command may collect from the target, in bytes.
inline constexpr std::size_t responseLimit = std::size_t{64} * 1024 * 1024;

/// The last command line composed, trimmed; empty when there is none. It is forgotten with an empty text.
void setLastTargetCommand(std::string_view text);
[[nodiscard]] const std::string& getLastTargetCommand();

/// Writes a hex dump of the bytes to standard error, 16 to a line.
void dumpBuffer(std::span<const std::uint8_t> bytes);

/// Makes a command line of its pieces, after the delay that is set for each; echoes and remembers it.
[[nodiscard]] std::string composeLine(const HandlerData& record, std::string_view text,
                                      std::string_view prefix, std::string_view suffix);

/// Writes the bytes once; returns the number written, which may be smaller, or -1 with the error number set.
[[nodiscard]] int writeRaw(const HandlerData& record, std::span<const std::uint8_t> bytes);

/// Writes all bytes, waiting at most `patience` ms while the port takes none. Returns the bytes of the last
/// write, 0 when three writes wrote nothing, or a negative number with the error number set.
int writeAll(const HandlerData& record, std::span<const std::uint8_t> bytes, int patience);

/// Starts the command's stopwatch and writes the composed line.
int sendLine(const HandlerData& record, std::string_view line, int patience);

/// For how many ms a write waits for a port that takes no bytes.
[[nodiscard]] int writePatience();

/// Reads one line of at most `capacity` characters; `timeout` in ms counts in whole seconds, 0 or less means
/// no limit. While it waits, progress dots go to the output handler when a period is set. Results as for
/// `serial_readLine`; on failure `line` holds what came of the line, if anything did.
[[nodiscard]] int readLine(HandlerData& record, std::string& line, int capacity, int timeout);

/// Collects the lines of one answer up to its status line into `response`, and shows them. `timeout` in ms
/// applies to each line. With `until`, an answer that has not ended by that time fails like one that did not
/// come.
[[nodiscard]] ErrorText collectAnswer(HandlerData& record, int timeout,
                                      const std::optional<timeval>& until = {});

} // namespace secapp
