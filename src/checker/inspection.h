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
    /// The run fails, or does something else than the script says.
    error,
};

struct Finding {
    /// From 1.
    int line = 0;
    Severity severity = Severity::warning;
    std::string text;
};

/// One command of a script as a run reads it.
struct CheckedCommand {
    /// 0 without a prefix; never that of a comment.
    char prefix = '\0';
    /// Behind the prefix, with the variables replaced.
    std::string text;
    /// The command word first; none of what "@" sends.
    std::vector<std::string> words;
    /// The row of the command table; null without words.
    const HandlerEntry* entry = nullptr;
};

/// An image or value that was programmed at one address and not verified since.
struct ProgrammedData {
    int line = 0;
    /// As written.
    std::string data;
    std::string address;
    /// Bytes of a value with a length; else the largest number.
    std::uint64_t size = 0;
    /// Set once less than that was verified.
    bool isPartlyVerified = false;
    bool isChecksumCalculated = false;
};

/// What is known at one place of a script.
struct Inspection {
    int line = 0;
    std::vector<Finding> findings;
    /// The lines whose warnings a comment suppresses.
    std::set<int> suppressedLines;
    /// The files that the commands name, as written, in the order of the script.
    std::vector<std::string> files;
    /// What was found in these files.
    std::map<std::string, ImageFile> images;
    /// Commands whose file is unknown, because they refer to variables without a value.
    std::vector<Finding> unknownFiles;
    /// References without a value; each is reported once.
    std::set<std::string> missingVariables;
    bool isTimerRunning = false;
    /// By what was programmed, then by address. Different texts for the same data or address are equal here.
    std::map<std::string, std::map<std::string, ProgrammedData>> unverified;
};

/// Report something about the current line.
void addError(Inspection& inspection, std::string text);
void addWarning(Inspection& inspection, std::string text);

/// The text between apostrophes, cut and without control characters.
[[nodiscard]] std::string quoted(std::string_view text);

/// Whether the command is carried out by the row of that name.
[[nodiscard]] bool isCommand(const CheckedCommand& command, std::string_view name);

/// Whether everything behind the command word is a text to be shown.
[[nodiscard]] bool showsText(const CheckedCommand& command);

} // namespace secapp
