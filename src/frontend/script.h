#pragma once

#include "link/handler_data.h"
#include "support/text.h"

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>

namespace secapp {

/// Where a run's lines come from.
struct ScriptSource {
    /// Names the source in error reports.
    std::string name;
    /// The whole of a script that is a regular file, less the lines handed out.
    std::string_view text;
    /// A script of another kind, null when there is none; not owned.
    std::FILE* stream = nullptr;
    /// The joined words of the command line, until it is handed out.
    std::optional<std::string> immediateLine;
    /// Whether the run still has to begin with the generated line that switches the target's echo off.
    bool batchSwitch = true;
    /// Lines read so far; the generated one does not count.
    int lineCounter = 0;
};

/// The next line of the script, with its newline; none at its end. `deviceName` may be null.
[[nodiscard]] std::optional<std::string> getScriptLine(ScriptSource& source, const char* deviceName);

/// One piece of a script line without the white space around it: its prefix, "#" of a comment included, and
/// what stands behind. The prefix is 0 when there is none.
struct PrefixedCommand {
    char prefix = '\0';
    std::string_view command;
};
[[nodiscard]] PrefixedCommand splitPrefix(std::string_view piece);

/// Runs one piece of a script line: applies its prefix, echoes it and processes the command. The open port
/// stays in `runRecord`.
[[nodiscard]] ErrorText runScriptCommand(HandlerData& runRecord, std::string_view commandText,
                                         std::uint32_t echoFlags);

// What these are made of.

/// Confirms the command when pausing is on, substitutes the variables, finds the command's handler and runs
/// it on a record of its own.
[[nodiscard]] ErrorText processLine(HandlerData& runRecord, std::string_view commandText,
                                    std::uint32_t echoFlags);

/// Sends the text to the target unchanged and waits for the answer.
[[nodiscard]] ErrorText immediateHandler(HandlerData& record, std::string_view text);

/// Writes the text to standard output: with a newline, or as it stands and at once.
void stdOutputHandler(HandlerData& record, std::string_view text, bool addNewline);

} // namespace secapp
