#pragma once

#include "link/handler_data.h"
#include "support/text.h"

#include <cstdint>
#include <span>
#include <string_view>

namespace secapp {

/// An answer that does not end in a status line, and a write that does not go out whole, leave host and
/// target out of step. From then on nothing is sent, and every write and every wait for an answer fails with
/// the text of that failure.

/// One exchange: sends a command and waits for its answer. Nothing on "VQX_OK", else the target's error text
/// or that of the link.
[[nodiscard]] ErrorText sendCommand(HandlerData& record, std::string_view text);

/// As `sendCommand`; on success the lines of the answer, each followed by a newline.
[[nodiscard]] Result<std::string> ask(HandlerData& record, std::string_view text);

/// A record for commands whose answers are not shown. It shares the port of `record`, which is opened first.
[[nodiscard]] Result<HandlerData> quietRecord(HandlerData& record);

/// Waits for an answer up to its status line, with the time-out that is set for all answers. Results as for
/// `sendCommand`.
[[nodiscard]] ErrorText getResponse(HandlerData& record);

/// The failure that left the record's connection out of step, whoever met it; none while it is in step.
[[nodiscard]] ErrorText connectionFailure(const HandlerData& record);

/// Opens the port, unless it is open, and gains control of the target. On failure the text that a command
/// whose port cannot be opened fails with.
[[nodiscard]] ErrorText openPort(HandlerData& record);

/// Sends the text unchanged, opening the port on first use. Returns the bytes written or a negative number,
/// that of a failed opening included. The next `getResponse` fails with the same failure.
int writeLineRaw(HandlerData& record, std::string_view text);

/// Writes all bytes to the open port, waiting while it takes none, for the response time-out at most.
[[nodiscard]] ErrorText writeRawFully(const HandlerData& record, std::span<const std::uint8_t> bytes);

/// An error for a text with a line break in it: the target would take it for several commands, and every
/// later answer would be read for an earlier command.
[[nodiscard]] ErrorText refuseLineBreaks(std::string_view text);

// What these are made of.

/// Sends a command line ("=", the text, CR), or one with another prefix and suffix. Results as for
/// `writeLineRaw`.
int writeLine(HandlerData& record, std::string_view text);
int writeLineExt(HandlerData& record, std::string_view text, std::string_view prefix,
                 std::string_view suffix);

/// As `getResponse`, with a time-out in ms for each line of the answer, 0 or less for no limit.
[[nodiscard]] ErrorText getTimedResponse(HandlerData& record, int timeout);

} // namespace secapp
