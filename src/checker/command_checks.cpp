#include "checker/command_checks.h"

#include "checker/flash_checks.h"
#include "checker/spelling.h"
#include "frontend/variables.h"

#include <algorithm>
#include <iterator>

namespace secapp {
namespace {

/// How many words a command looks at behind its own and its options, and why no more.
struct WordCount {
    std::string_view command;
    std::size_t count;
    std::string_view reason;
};

constexpr WordCount wordCounts[] = {
    {"program", 2, "a file is programmed whole"},
    {"verify", 2, "a file is verified whole"},
    {"erase", 1, oneAddressWord},
    {"blankCheck", 1, oneAddressWord},
    {"setBoot", 1, "one bank is selected"},
    {"setVidPid", 2, "there are two numbers"},
    {"delay", 1, "a time is one word"},
    {"timer", 1, "an operation is one word"},
    {"targetInfo", 0, "the command takes no words"},
    {"queryFlash", 0, "the command takes no words"},
    {"download", 1, "one file is loaded"},
};

/// The words from `first` on, as they stand in a sentence.
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

/// The references to variables that have no value here.
std::vector<std::string> undefinedReferences(const CheckedCommand& command) {
    std::vector<std::string> references;
    // "@" replaces no variables, and a value can refer to variables that are defined later.
    if (command.prefix == '@' || isCommand(command, "var"))
        return references;
    const std::string_view text = command.text;
    for (std::size_t open = text.find('['); open != std::string_view::npos; open = text.find('[', open + 1)) {
        const std::size_t close = text.find_first_of("[]", open + 1);
        if (close == std::string_view::npos || text[close] == '[' || close == open + 1)
            continue;
        // A message may have brackets of its own.
        if (showsText(command) && !isName(text.substr(open + 1, close - open - 1)))
            continue;
        references.emplace_back(text.substr(open, close - open + 1));
    }
    return references;
}

/// Reports references without a value, each once; true when there are none.
bool checkReferences(Inspection& inspection, const CheckedCommand& command) {
    const std::vector<std::string> references = undefinedReferences(command);
    for (const std::string& reference : references) {
        if (!inspection.missingVariables.insert(reference).second)
            continue;
        const auto report = showsText(command) ? addWarning : addError;
        report(inspection, quoted(reference) + " has no value here and stays as it is");
    }
    return references.empty();
}

/// Notes the file that a command names, or that it cannot be known.
void collectFile(Inspection& inspection, const CheckedCommand& command) {
    if (command.entry == nullptr)
        return;
    const std::vector<std::string> references = undefinedReferences(command);
    const bool isUnknownCommand = command.words.front().find('[') != std::string::npos;
    if (!references.empty() && (isUnknownCommand || namesFile(command))) {
        inspection.unknownFiles.push_back(
            {inspection.line, Severity::error, quoted(references.front()) + " has no value here"});
        return;
    }
    const std::optional<std::string> file = fileOf(command);
    if (file && file->find_first_of("\r\n") != std::string::npos)
        inspection.unknownFiles.push_back(
            {inspection.line, Severity::error, quoted(*file) + " has a line break and cannot be listed"});
    else if (file && inspection.knownFiles.insert(*file).second)
        inspection.files.push_back(*file);
}

void checkSpelling(Inspection& inspection, const CheckedCommand& command) {
    if (command.entry->name != nullptr)
        return;
    if (const std::optional<std::string_view> similar = similarCommand(command.words.front()))
        addWarning(inspection, quoted(command.words.front()) +
                                   " is no command of the tool: it goes to the target; did you mean " +
                                   quoted(*similar) + "?");
}

bool beginsLikeComment(std::string_view word) {
    return word.starts_with('#') || word.starts_with("//") || word.starts_with("/*");
}

/// The words behind those that a command looks at, and what is no comment.
void checkWords(Inspection& inspection, const CheckedCommand& command) {
    if (showsText(command))
        return;
    std::vector<std::string> words = command.words;
    const auto comment = std::find_if(words.begin(), words.end(), beginsLikeComment);
    if (comment != words.end())
        addError(inspection, quoted(*comment) + " begins no comment here: it is a word of the command");
    words.erase(comment, words.end());
    const auto* const row = std::find_if(std::begin(wordCounts), std::end(wordCounts),
                                         [&](const WordCount& c) { return isCommand(command, c.command); });
    if (row == std::end(wordCounts))
        return;
    const std::optional<FlashWords> flash = readFlashWords(command);
    const bool hasLength = flash && !flash->isFile;
    std::size_t next = 1 + row->count + (hasLength ? 1 : 0);
    for (std::size_t at = 1; at < words.size() && words[at].front() == '+'; ++at)
        ++next;
    if (next >= words.size())
        return;
    std::string_view reason = row->reason;
    if (hasLength)
        reason = "a length is one word";
    else if (flash && isSplit(flash->addresses, words[next]))
        reason = oneAddressWord;
    addError(inspection, listed(words, next) + (next + 1 == words.size() ? " has" : " have") +
                             " no effect: " + std::string(reason));
}

void checkVariable(Inspection& inspection, const CheckedCommand& command) {
    if (!isCommand(command, "var"))
        return;
    const std::string_view definition =
        trimwhitespace(std::string_view(command.text).substr(command.entry->matchLength));
    const auto [name, value] = splitDefinition(definition);
    if (!name)
        return;
    if (definition.find('=') == std::string_view::npos)
        addError(inspection, quoted(command.words.front()) + " defines the variable " + quoted(*name) +
                                 " as empty: it begins with 'var'");
    else if (trimRight(*name) != *name || (value && trimwhitespace(*value) != *value))
        addWarning(inspection, "blanks beside '=' count: the name is " + quoted(*name) + ", the value " +
                                   quoted(value.value_or("")));
    if (value && value->data() + value->size() != definition.data() + definition.size())
        addError(inspection, "the value ends at the second '=': it is " + quoted(*value));
}

void checkPause(Inspection& inspection, const CheckedCommand& command) {
    if (!isCommand(command, "pause"))
        return;
    const std::string_view message = argumentsOf(command.text);
    for (const std::string_view state : {"on", "off"})
        if (startsWithIgnoringCase(message, state) && message.size() > state.size())
            addError(inspection, quoted(message) + " begins with '" + std::string(state) +
                                     "': it switches confirmation and is not shown");
}

using CommandCheck = void (*)(Inspection& inspection, const CheckedCommand& command);

constexpr CommandCheck commandChecks[] = {checkSpelling, checkWords,     checkVariable,
                                          checkPause,    checkFlashData, followVerification};

} // namespace

void checkCommand(Inspection& inspection, const CheckedCommand& command) {
    if (command.prefix == '?' && command.text.empty())
        addError(inspection, "'?' alone shows the help and ends the run with status 0");
    collectFile(inspection, command);
    if (!checkReferences(inspection, command) || command.entry == nullptr)
        return;
    for (const CommandCheck check : commandChecks)
        check(inspection, command);
}

} // namespace secapp
