#pragma once

#include "link/handler_data.h"
#include "support/line_source.h"
#include "support/text.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace secapp {

/// The source of a run's lines.
struct ScriptSource {
    /// The source's name in error reports.
    std::string name;
    /// Null when there is only the immediate line; not owned.
    LineSource* lines = nullptr;
    /// The joined words of the command line, until `getScriptLine` returns them.
    std::optional<std::string> immediateLine;
    /// Whether the next line is the generated "batchmode 1", which switches the target's echo off.
    bool batchLineDue = true;
    /// Lines read so far; the generated one does not count.
    int lineCounter = 0;
};

/// The next line of the script, with its newline; empty at its end. The generated line is skipped if
/// `deviceName` is null.
[[nodiscard]] std::optional<std::string> getScriptLine(ScriptSource& source, const char* deviceName);

/// One piece of a script line, which ";" separates from the next one: its prefix character, including the "#"
/// of a comment, and the text after it, both without white space. The prefix is 0 when there is none.
struct PrefixedCommand {
    char prefix = '\0';
    std::string_view command;
};
[[nodiscard]] PrefixedCommand splitPrefix(std::string_view piece);

/// Runs one piece of a script line: applies its prefix, echoes it and processes the command.
[[nodiscard]] ErrorText runScriptCommand(HandlerData& runRecord, std::string_view commandText,
                                         std::uint32_t echoFlags);

/// Asks the user to confirm the command when pausing is on, substitutes the variables, finds the command's
/// handler and calls it with a new record.
[[nodiscard]] ErrorText processLine(HandlerData& runRecord, std::string_view commandText,
                                    std::uint32_t echoFlags);

/// Sends the text to the target unchanged and waits for the answer.
[[nodiscard]] ErrorText immediateHandler(HandlerData& record, std::string_view text);

/// Writes the text to standard output: with a newline, or unchanged and flushed.
void stdOutputHandler(HandlerData& record, std::string_view text, bool addNewline);

} // namespace secapp
