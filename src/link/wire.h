#pragma once

#include "link/handler_data.h"
#include "link/timing.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace secapp {

/// The protocol on an open port. `link/protocol.h` opens the port on first use.

/// The longest line of an answer, in characters; a longer one is received in pieces.
inline constexpr std::size_t answerLineLimit = 16384;

/// How much one script command may receive from the target, in bytes, including the ignored lines of an
/// answer.
inline constexpr std::size_t responseLimit = std::size_t{64} * 1024 * 1024;

/// The last command line composed, trimmed; empty when there is none.
void setLastTargetCommand(std::string_view text);
[[nodiscard]] const std::string& getLastTargetCommand();

/// Makes a command line of its pieces after the delay that is set for each line; echoes and remembers it.
[[nodiscard]] std::string composeLine(const HandlerData& record, std::string_view text,
                                      std::string_view prefix, std::string_view suffix);

/// Writes all bytes, waiting at most `timeout` in all while the port takes none. Three writes that write
/// nothing are a failure.
[[nodiscard]] ErrorText writeAll(const HandlerData& record, std::span<const std::uint8_t> bytes,
                                 Clock::duration timeout);

/// Starts the command's stopwatch and writes the composed line.
[[nodiscard]] ErrorText sendLine(const HandlerData& record, std::string_view line, Clock::duration timeout);

/// How long a write waits for a port that takes no bytes.
[[nodiscard]] Clock::duration writeTimeout();

/// How the wait for an answer ended: with "VQX_OK", with an error status, or without any status.
enum class AnswerEnd { ok, refused, lost };

struct Answer {
    AnswerEnd end;
    /// The target's text after its error status, or why its answer was lost.
    std::string text;
};

/// Collects the lines of one answer up to its status line into `response`, and shows them. `timeout` in ms
/// applies to each line, 0 or less for no limit; ignored lines (empty ones, repeated commands) extend it to
/// ten time-outs. An answer that has not ended at `limit` is lost.
[[nodiscard]] Answer collectAnswer(HandlerData& record, int timeout, TimePoint limit = TimePoint::max());

// Lower-level functions.

/// Writes a hex dump of the bytes to standard error, 16 per line.
void dumpBuffer(std::span<const std::uint8_t> bytes);

/// Writes the bytes once; returns the number written, which may be smaller, or -1.
[[nodiscard]] int writeRaw(const HandlerData& record, std::span<const std::uint8_t> bytes);

/// Reads one line of at most `capacity` characters; `timeout` in ms counts in whole seconds, 0 or less means
/// no limit, but never after `limit`. While it waits, progress dots go to the output handler when a period is
/// set. What was received, including an incomplete line, replaces `line`; otherwise `line` is unchanged.
/// Shows `line` after every read when the record's flags ask for it.
[[nodiscard]] LineEnd readLine(HandlerData& record, std::string& line, std::size_t capacity, int timeout,
                               TimePoint limit = TimePoint::max());

} // namespace secapp
