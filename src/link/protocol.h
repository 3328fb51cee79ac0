#pragma once

#include "link/handler_data.h"
#include "support/text.h"

#include <cstdint>
#include <span>
#include <string_view>

namespace secapp {

/// Opens the port, unless it is open, and gains control of the target. On failure the text that a command
/// whose port cannot be opened fails with.
[[nodiscard]] ErrorText openPort(HandlerData& record);

/// Sends a command line ("=", the text, CR), opening the port on first use. Returns the bytes of the last
/// write (> 0), 0 when three writes wrote nothing, or a negative number, that of a failed opening included.
int writeLine(HandlerData& record, std::string_view text);

/// As `writeLine` with another prefix and suffix.
int writeLineExt(HandlerData& record, std::string_view text, std::string_view prefix,
                 std::string_view suffix);

/// Sends the text as it stands. Results as for `writeLine`.
int writeLineRaw(HandlerData& record, std::string_view text);

/// Writes all bytes to the open port, waiting while it takes none, for the response time-out at most.
[[nodiscard]] ErrorText writeRawFully(const HandlerData& record, std::span<const std::uint8_t> bytes);

/// Waits for the answer up to its status line: nothing on "VQX_OK", else the target's error text or the
/// system's text for a time-out or a failed port. `timeout` in ms for each line of the answer, 0 or less for
/// no limit.
[[nodiscard]] ErrorText getTimedResponse(HandlerData& record, int timeout);

/// As `getTimedResponse` with the time-out that is set for all answers.
[[nodiscard]] ErrorText getResponse(HandlerData& record);

/// An error for a text with a line break in it: the target would take it for several commands, and every
/// later answer would be read for an earlier command.
[[nodiscard]] ErrorText refuseLineBreaks(std::string_view text);

/// One exchange: `writeLine`, then `getResponse`, which also tells of a line that could not be written.
[[nodiscard]] ErrorText exchange(HandlerData& record, std::string_view text);

} // namespace secapp
