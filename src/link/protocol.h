#pragma once

#include "link/handler_data.h"
#include "support/text.h"

#include <cstdint>
#include <span>
#include <string_view>

namespace secapp {

/// After a lost answer or an incomplete write, the next answer could belong to an earlier command. From then
/// on nothing is sent, and every write and every wait for an answer fails with the text of that failure.

/// One exchange: sends a command and waits for its answer. Returns no error on "VQX_OK", else the error of
/// the target or of the link.
[[nodiscard]] ErrorText sendCommand(HandlerData& record, std::string_view text);

/// Like `sendCommand`, but returns the lines of the answer, each followed by a newline.
[[nodiscard]] Result<std::string> ask(HandlerData& record, std::string_view text);

/// A record for commands whose answers are not shown. Opens the port, which the record shares with `record`.
[[nodiscard]] Result<HandlerData> quietRecord(HandlerData& record);

/// Waits for an answer up to its status line, with the time-out of all answers. Results as for `sendCommand`.
[[nodiscard]] ErrorText getResponse(HandlerData& record);

/// The failure after which nothing is sent on the record's port; none while commands can be sent.
[[nodiscard]] ErrorText connectionFailure(const HandlerData& record);

/// Opens the port and connects to the target, unless that is done. Returns the text with which a command
/// fails on a port that cannot be opened.
[[nodiscard]] ErrorText openPort(HandlerData& record);

/// Sends the text unchanged and opens the port on first use. Returns the number of bytes written. A
/// negative number means that the port could not be opened or the text not be sent; then the next
/// `getResponse` fails.
int writeLineRaw(HandlerData& record, std::string_view text);

/// Writes all bytes to the open port. Fails if the port accepts none for the time-out of an answer.
[[nodiscard]] ErrorText writeRawFully(const HandlerData& record, std::span<const std::uint8_t> bytes);

/// An error for a text with a line break. The target would read several commands; each later answer would
/// then belong to an earlier one.
[[nodiscard]] ErrorText refuseLineBreaks(std::string_view text);

// Lower-level functions.

/// Sends a command line ("=", the text, CR), or one with another prefix and suffix. Results as for
/// `writeLineRaw`.
int writeLine(HandlerData& record, std::string_view text);
int writeLineExt(HandlerData& record, std::string_view text, std::string_view prefix,
                 std::string_view suffix);

/// As `getResponse`, with a time-out in ms for each line of the answer, 0 or less for no limit.
[[nodiscard]] ErrorText getTimedResponse(HandlerData& record, int timeout);

} // namespace secapp
