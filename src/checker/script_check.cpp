#include "checker/script_check.h"

#include "checker/command_checks.h"
#include "checker/verification.h"
#include "frontend/command_table.h"
#include "frontend/script.h"
#include "frontend/variables.h"

#include <algorithm>
#include <utility>

namespace secapp {
namespace {

constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view suppressComment = "lint: off";

void checkBytes(Inspection& inspection, std::string_view line, bool isFirst) {
    if (isFirst && line.starts_with(byteOrderMark))
        addError(inspection, "the byte-order mark is read as part of the first word");
    if (trimRight(line).find('\r') != std::string_view::npos)
        addError(inspection,
                 "a carriage return does not end a line: the text after it belongs to the same command");
    if (line.find('\0') != std::string_view::npos)
        addError(inspection, "a zero byte ends the run");
}

/// The rest of a line that is too long.
void checkContinuation(Inspection& inspection, std::string_view line) {
    const std::string_view text = trimwhitespace(line);
    if (text.empty())
        return;
    const auto report = text.front() == '#' ? addWarning : addError;
    report(inspection, formatText("a line has more than %zu characters: %s runs as the next one", textLimit,
                                  quoted(text).c_str()));
}

CheckedCommand readCommand(const PrefixedCommand& piece) {
    CheckedCommand command;
    command.prefix = piece.prefix;
    command.text = piece.command;
    if (piece.prefix == '@')
        return command;
    std::optional<std::string> text = replaceVariables(scriptVariables(), piece.command);
    if (!text)
        return command;
    command.text = std::move(*text);
    std::string_view rest = command.text;
    while (const std::optional<std::string_view> word = nextWord(rest))
        command.words.emplace_back(*word);
    if (!command.words.empty())
        command.entry = &findHandler(command.words.front());
    return command;
}

void runDefinition(const CheckedCommand& command) {
    HandlerData unusedRecord;
    // Without a name it defines nothing, and ends the run.
    if (isNamed(command, "var"))
        (void)varHandler(unusedRecord, command.text, command.words.front(), command.entry);
}

void checkLine(Inspection& inspection, std::string_view line) {
    bool followsComment = false;
    while (const std::optional<std::string_view> piece = nextPiece(line, ";")) {
        const PrefixedCommand parts = splitPrefix(*piece);
        if (parts.prefix == '#') {
            followsComment = true;
            if (parts.command.starts_with(suppressComment))
                inspection.suppressedLines.insert(inspection.line + 1);
            continue;
        }
        if (parts.prefix == '\0' && parts.command.empty())
            continue;
        if (std::exchange(followsComment, false))
            addWarning(inspection, quoted(trimwhitespace(*piece)) + " is run: the comment ends at ';'");
        const CheckedCommand command = readCommand(parts);
        checkCommand(inspection, command);
        runDefinition(command);
    }
}

/// In the order of the lines, without the warnings that a comment suppresses.
std::vector<Finding> sortAndFilter(const Inspection& inspection) {
    std::vector<Finding> findings;
    for (const Finding& finding : inspection.findings)
        if (finding.severity == Severity::error || !inspection.suppressedLines.contains(finding.line))
            findings.push_back(finding);
    std::stable_sort(findings.begin(), findings.end(),
                     [](const Finding& a, const Finding& b) { return a.line < b.line; });
    return findings;
}

} // namespace

ScriptReport checkScript(std::FILE* stream, const Variables& variables, bool isUnattended) {
    scriptVariables() = variables;
    Inspection inspection;
    inspection.isUnattended = isUnattended;
    LineSource lines{.stream = stream};
    ScriptSource source;
    source.lines = &lines;
    bool startsLine = true;
    while (const std::optional<std::string> line = getScriptLine(source, nullptr)) {
        if (startsLine)
            ++inspection.line;
        else
            checkContinuation(inspection, *line);
        startsLine = line->ends_with('\n');
        checkBytes(inspection, *line, source.lineCounter == 1);
        if (line->find('\0') == std::string::npos)
            checkLine(inspection, *line);
    }
    reportUnverified(inspection);
    return {.findings = sortAndFilter(inspection),
            .files = std::move(inspection.files),
            .unknownFiles = std::move(inspection.unknownFiles)};
}

} // namespace secapp
