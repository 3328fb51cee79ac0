#pragma once

#include "checker/images.h"
#include "commands/handler.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace secapp {

enum class Severity {
    /// Probably a mistake.
    warning,
    /// The run fails, or does not do what the script says.
    error,
};

struct Finding {
    /// From 1.
    int line = 0;
    Severity severity = Severity::warning;
    std::string text;
};

/// One command of a script, as a run interprets it.
struct CheckedCommand {
    /// 0 without a prefix; never '#', which starts a comment.
    char prefix = '\0';
    /// The text after the prefix, with the variables replaced.
    std::string text;
    /// The command word first; empty after "@".
    std::vector<std::string> words;
    /// The row of the command table; null if there are no words.
    const HandlerEntry* entry = nullptr;
};

/// An image or value that was programmed at one address and not completely verified since.
struct ProgrammedData {
    int line = 0;
    /// As written in the script.
    std::string data;
    std::string address;
    /// In bytes, for a value with a length; otherwise UINT64_MAX.
    std::uint64_t size = 0;
    /// Whether fewer bytes were verified.
    bool isPartlyVerified = false;
    bool isChecksumCalculated = false;
};

/// The state of the check.
struct Inspection {
    /// The current line.
    int line = 0;
    std::vector<Finding> findings;
    /// The lines whose warnings a comment suppresses.
    std::set<int> suppressedLines;
    /// The files that the commands name, as written, in the order of the script.
    std::vector<std::string> files;
    /// These files by name.
    std::map<std::string, ImageFile> images;
    /// Why `files` may be incomplete: commands with undefined variables.
    std::vector<Finding> unknownFiles;
    /// The undefined variables reported so far.
    std::set<std::string> missingVariables;
    bool isTimerRunning = false;
    /// Whether no user answers the script.
    bool isUnattended = false;
    /// By data, then by address; keys are equal if the data or addresses are, however they are written.
    std::map<std::string, std::map<std::string, ProgrammedData>> unverified;
};

/// Add a finding to the current line.
void addError(Inspection& inspection, std::string text);
void addWarning(Inspection& inspection, std::string text);

/// The text in apostrophes, cut after `limit` characters and without control characters.
[[nodiscard]] std::string quoted(std::string_view text, std::size_t limit = 40);

/// Whether the command is the one of that name in the command table.
[[nodiscard]] bool isNamed(const CheckedCommand& command, std::string_view name);

/// Whether the command is not one of secapp, so that it is sent to the target.
[[nodiscard]] bool isForTarget(const CheckedCommand& command);

/// Whether the arguments of the command are a text to be shown.
[[nodiscard]] bool showsText(const CheckedCommand& command);

} // namespace secapp
