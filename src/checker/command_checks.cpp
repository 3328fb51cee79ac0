#include "checker/command_checks.h"

#include "checker/flash_checks.h"
#include "checker/number_checks.h"
#include "checker/spelling.h"
#include "checker/verification.h"
#include "commands/expressions.h"
#include "frontend/command_table.h"
#include "frontend/variables.h"
#include "support/numbers.h"

#include <algorithm>
#include <iterator>

#include <sys/stat.h>

namespace secapp {
namespace {

/// The number of words that a command needs after its options. It reads no more, except for a length.
struct WordCount {
    std::string_view command;
    std::size_t count;
    /// Follows "needs"; empty if nothing is needed.
    std::string_view needed;
    /// Why other words have no effect.
    std::string_view reason;
};

constexpr WordCount wordCounts[] = {
    {"program", 2, "a file or value and an address", "a file is programmed whole"},
    {"verify", 2, "a file or value and an address", "a file is verified whole"},
    {"erase", 1, "an address", oneAddressWord},
    {"blankCheck", 1, "an address", oneAddressWord},
    {"setBoot", 1, "a bank", "one bank is selected"},
    {"setVidPid", 2, "two numbers", "there are two numbers"},
    {"delay", 1, "a time", "a time is one word"},
    {"timer", 1, "an operation", "an operation is one word"},
    {"targetInfo", 0, "", "the command takes no words"},
    {"queryFlash", 0, "", "the command takes no words"},
    {"download", 1, "a file", "one file is loaded"},
};

/// The words from `first` on, as a part of a sentence.
std::string listed(const std::vector<std::string>& words, std::size_t first) {
    std::string list = quoted(words[first]);
    for (std::size_t at = first + 1; at < words.size(); ++at)
        list.append(at + 1 == words.size() ? " and " : ", ").append(quoted(words[at]));
    return list;
}

bool isName(std::string_view text) {
    const auto isLetter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; };
    return isLetter(text.front()) && std::all_of(text.begin(), text.end(), [&](char c) {
               return isLetter(c) || (c >= '0' && c <= '9');
           });
}

/// The references to undefined variables.
std::vector<std::string> undefinedReferences(const CheckedCommand& command) {
    std::vector<std::string> references;
    // "@" replaces no variables, and a value can refer to variables that are defined later.
    if (command.prefix == '@' || isNamed(command, "var"))
        return references;
    const std::string_view text = command.text;
    for (std::size_t open = text.find('['); open != std::string_view::npos; open = text.find('[', open + 1)) {
        const std::size_t close = text.find_first_of("[]", open + 1);
        if (close == std::string_view::npos || text[close] == '[' || close == open + 1)
            continue;
        // A message and a command for the target can contain brackets.
        const bool canHaveBrackets = showsText(command) || isForTarget(command);
        if (canHaveBrackets && !isName(text.substr(open + 1, close - open - 1)))
            continue;
        references.emplace_back(text.substr(open, close - open + 1));
    }
    return references;
}

/// Reports undefined variables, each once; true if there are none.
bool checkReferences(Inspection& inspection, const CheckedCommand& command) {
    const std::vector<std::string> references = undefinedReferences(command);
    for (const std::string& reference : references) {
        if (!inspection.missingVariables.insert(reference).second)
            continue;
        const auto report = showsText(command) ? addWarning : addError;
        report(inspection, quoted(reference) + " is not defined here and is left as it is");
    }
    return references.empty();
}

/// Adds the file that a command names to the list, or the reason why it is unknown.
void collectFile(Inspection& inspection, const CheckedCommand& command) {
    if (command.entry == nullptr)
        return;
    const std::vector<std::string> references = undefinedReferences(command);
    const bool isUnknownCommand = command.words.front().find('[') != std::string::npos;
    if (!references.empty() && (isUnknownCommand || namesFile(command))) {
        inspection.unknownFiles.push_back(
            {inspection.line, Severity::error, quoted(references.front()) + " is not defined here"});
        return;
    }
    const std::optional<std::string> file = fileOf(command);
    if (file && file->find_first_of("\r\n") != std::string::npos)
        inspection.unknownFiles.push_back(
            {inspection.line, Severity::error, quoted(*file) + " has a line break and cannot be listed"});
    else if (file)
        inspection.files.push_back(*file);
}

/// Whether a word after the command word is the name of an existing file.
bool mentionsFile(const CheckedCommand& command) {
    struct stat status {};
    return std::any_of(command.words.begin() + 1, command.words.end(), [&](const std::string& word) {
        return !isNumeric(word) && ::stat(word.c_str(), &status) == 0;
    });
}

/// Whether the word is a command and more, joined by a character such as a no-break space.
bool joinsCommand(std::string_view word) {
    const auto isSeparator = [](char c) { return c < '!' || c > '~'; };
    const auto length = std::find_if(word.begin(), word.end(), isSeparator) - word.begin();
    const std::string_view command = word.substr(0, static_cast<std::size_t>(length));
    return command != word && (findHandler(command).name != nullptr || isTargetCommand(command));
}

void checkSpelling(Inspection& inspection, const CheckedCommand& command) {
    if (!isForTarget(command))
        return;
    if (joinsCommand(command.words.front()))
        return addError(inspection,
                        quoted(command.words.front()) + " is one word: only spaces and tabs separate words");
    const std::optional<std::string_view> similar = similarCommand(command.words.front());
    if (!similar)
        return;
    // A target can have such a command, but has no files.
    const auto report = mentionsFile(command) ? addError : addWarning;
    report(inspection, quoted(command.words.front()) +
                           " is not a command of secapp: it is sent to the target; did you mean " +
                           quoted(*similar) + "?");
}

bool beginsLikeComment(std::string_view word) {
    return word.starts_with('#') || word.starts_with("//") || word.starts_with("/*");
}

const WordCount* findWordCount(const CheckedCommand& command) {
    const auto* const row = std::find_if(std::begin(wordCounts), std::end(wordCounts),
                                         [&](const WordCount& c) { return isNamed(command, c.command); });
    return row == std::end(wordCounts) ? nullptr : row;
}

/// Whether a comment at that place changes what the command does.
bool isReadByCommand(const CheckedCommand& command, const WordCount* row, std::size_t at) {
    if (isNamed(command, "var"))
        return false;
    if (row == nullptr)
        return at == 0 || !isForTarget(command) || isTargetCommand(command.words.front());
    // The flash commands evaluate the word after the address.
    return at < firstArgument(command) + row->count + (isFlashCommand(command) ? 1 : 0);
}

/// Reports a word that looks like the start of a comment. Returns its place, or the number of words.
std::size_t checkComment(Inspection& inspection, const CheckedCommand& command, const WordCount* row) {
    for (std::size_t at = 0; at < command.words.size(); ++at) {
        // A path can begin with "//".
        const bool isFile = at == firstArgument(command) && namesFile(command);
        if (isFile || !beginsLikeComment(command.words[at]))
            continue;
        const auto report = isReadByCommand(command, row, at) ? addError : addWarning;
        report(inspection,
               quoted(command.words[at]) + " does not start a comment here: it is part of the command");
        return at;
    }
    return command.words.size();
}

/// Why the words from `next` on have no effect.
std::string_view reasonOf(const CheckedCommand& command, const WordCount& row, std::size_t next) {
    const std::optional<ProgramArguments> arguments = parseProgramArguments(command);
    const bool startsWithDigit = command.words[next].front() >= '0' && command.words[next].front() <= '9';
    if (arguments && !arguments->isFile)
        return "a length is one word";
    if (arguments && isSplit(arguments->addresses, command.words[next]))
        return oneAddressWord;
    if (isNamed(command, "erase") && startsWithDigit)
        return "'erase' erases to the end: there is no erase of a range";
    if (isNamed(command, "blankCheck") && startsWithDigit)
        return "'blankCheck' checks to the end: there is no check of a range";
    return row.reason;
}

/// Words that are missing or have no effect.
void checkWords(Inspection& inspection, const CheckedCommand& command) {
    if (showsText(command))
        return;
    const WordCount* row = findWordCount(command);
    std::vector<std::string> words = command.words;
    words.resize(checkComment(inspection, command, row));
    if (row == nullptr)
        return;
    std::size_t next = firstArgument(command) + row->count;
    if (next > command.words.size())
        return addError(inspection, quoted(command.words.front()) + " needs " + std::string(row->needed));
    const std::optional<ProgramArguments> arguments = parseProgramArguments(command);
    next += arguments && !arguments->isFile ? 1 : 0;
    if (next < words.size())
        addError(inspection, listed(words, next) + (next + 1 == words.size() ? " has" : " have") +
                                 " no effect: " + std::string(reasonOf(command, *row, next)));
}

void checkVariable(Inspection& inspection, const CheckedCommand& command) {
    if (!isNamed(command, "var"))
        return;
    const std::string_view definition =
        trimwhitespace(std::string_view(command.text).substr(command.entry->matchLength));
    const std::string& word = command.words.front();
    const std::optional<std::string_view> name = splitDefinition(definition).name;
    if (!name)
        addError(inspection, quoted(word) + " needs a name");
    else if (definition.find('=') == std::string_view::npos)
        addError(inspection,
                 quoted(word) + " defines the variable " + quoted(*name) + " as empty: it begins with 'var'");
    else if (startsWithIgnoringCase(word, "variable"))
        addError(inspection,
                 quoted(word) + " defines the variable " + quoted(*name) + ": it begins with 'var'");
    else
        checkDefinition(inspection, definition);
}

void checkPause(Inspection& inspection, const CheckedCommand& command) {
    if (!isNamed(command, "pause"))
        return;
    const std::string_view message = argumentsOf(command.text);
    for (const std::string_view state : {"on", "off"})
        if (startsWithIgnoringCase(message, state) && message.size() > state.size())
            addError(inspection, quoted(message) + " begins with '" + std::string(state) +
                                     "': it switches confirmation and is not shown");
}

/// Reports a command that waits for a user, who is not there.
void checkAttendance(Inspection& inspection, const CheckedCommand& command) {
    const bool pauses =
        isNamed(command, "pause") && !startsWithIgnoringCase(argumentsOf(command.text), "off");
    if (inspection.isUnattended && (pauses || command.prefix == '?'))
        addError(inspection, (pauses ? quoted(command.words.front()) : "'?'") + " waits for a user");
}

void checkTimer(Inspection& inspection, const CheckedCommand& command) {
    if (!isNamed(command, "timer") || command.words.size() < 2)
        return;
    const std::string& operation = command.words[1];
    if (operation == "start" || operation == "on")
        inspection.isTimerRunning = true;
    else if (operation == "stop" || operation == "off")
        inspection.isTimerRunning = false;
    else if (operation != "print")
        addError(inspection, quoted(operation) + " is not an operation of 'timer'");
    else if (!inspection.isTimerRunning)
        addError(inspection, "the timer does not run here");
}

void checkBank(Inspection& inspection, const CheckedCommand& command) {
    constexpr std::string_view banks[] = {"BankA", "BankB", "0", "1"};
    if (!isNamed(command, "setBoot") || command.words.size() < 2)
        return;
    if (std::none_of(std::begin(banks), std::end(banks),
                     [&](std::string_view bank) { return equalsIgnoringCase(command.words[1], bank); }))
        addError(inspection, quoted(command.words[1]) + " is not a bank");
}

/// Checks the numbers of "delay" and of a command for the target.
void checkNumbers(Inspection& inspection, const CheckedCommand& command) {
    std::uint32_t value = 0;
    if (isNamed(command, "delay") && command.words.size() > 1) {
        if (decode(command.words[1], value))
            addError(inspection, quoted(command.words[1]) + " is not a number");
        checkNumber(inspection, command.words[1]);
    } else if (isForTarget(command)) {
        for (std::size_t at = 1; at < command.words.size(); ++at)
            checkTargetWord(inspection, command.words[at]);
    }
}

using CommandCheck = void (*)(Inspection& inspection, const CheckedCommand& command);

constexpr CommandCheck commandChecks[] = {
    checkSpelling, checkWords, checkVariable, checkPause,        checkAttendance,
    checkTimer,    checkBank,  checkNumbers,  checkFlashCommand, trackVerification,
};

} // namespace

void checkDefinition(Inspection& inspection, std::string_view definition) {
    const auto [name, value] = splitDefinition(definition);
    const std::string read = std::string(name.value_or("")) + "=" + std::string(value.value_or(""));
    if (read != definition)
        addError(inspection, "only one '=' counts: the variable " + quoted(name.value_or("")) + " is " +
                                 quoted(value.value_or("")));
    else if (trimRight(*name) != *name)
        addError(inspection, "the name " + quoted(*name) + " ends with a space");
    else if (value && trimwhitespace(*value) != *value)
        addWarning(inspection, "the value " + quoted(*value) + " begins with a space");
}

void checkCommand(Inspection& inspection, const CheckedCommand& command) {
    if (command.prefix == '?' && command.text.empty())
        return addError(inspection, "'?' alone shows the help and ends the run with status 0");
    if (command.words.empty() && (command.prefix != '@' || command.text.empty()))
        return addError(inspection, "a command is missing here");
    collectFile(inspection, command);
    if (!checkReferences(inspection, command) || command.entry == nullptr)
        return;
    for (const CommandCheck check : commandChecks)
        check(inspection, command);
}

} // namespace secapp
