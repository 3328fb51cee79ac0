#pragma once

#include "link/handler_data.h"
#include "support/text.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace secapp {

struct HandlerEntry;

/// Carries out one command. `text` is the whole command after variable substitution, including its command
/// word; `word` is the command word as typed; `entry` is the matched row of the command table, null when a
/// command runs without one.
using CommandHandler = ErrorText (*)(HandlerData& record, std::string_view text, std::string_view word,
                                     const HandlerEntry* entry);

/// One row of the command table.
struct HandlerEntry {
    /// Null in the last row, which matches every word.
    const char* name;
    const char* description;
    const char* argumentHelp = "";
    bool showInHelp = true;
    /// 0: the whole word must equal `name`; N: only the first N characters are compared. Both without regard
    /// to case.
    std::uint32_t matchLength = 0;
    CommandHandler handler;
};

/// The text of a command after its command word, to be cut into words. White space other than spaces and tabs
/// belongs to the words.
[[nodiscard]] inline std::string_view argumentWords(std::string_view text) {
    (void)nextWord(text);
    return text;
}

/// The text of a command after its command word, trimmed.
[[nodiscard]] inline std::string_view argumentsOf(std::string_view text) {
    return trimwhitespace(argumentWords(text));
}

/// The usage line of a command for its "missing" messages; empty without a row.
[[nodiscard]] inline std::string commandUsage(const HandlerEntry* entry) {
    return entry == nullptr ? std::string() : formatText("\nUsage: %s %s", entry->name, entry->argumentHelp);
}

} // namespace secapp
