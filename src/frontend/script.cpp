#include "frontend/script.h"

#include "frontend/command_table.h"
#include "frontend/help.h"
#include "frontend/prompt.h"
#include "frontend/variables.h"
#include "link/protocol.h"
#include "support/echo.h"
#include "support/scope.h"
#include "support/streams.h"

#include <utility>

namespace secapp {
namespace {

/// The effect of a prefix on the echo flags of its command.
struct PrefixEffect {
    char prefix;
    std::uint32_t keptFlags;
    std::uint32_t addedFlags;
};

constexpr std::uint32_t allFlags = 0xFFFFFFFF;
constexpr std::string_view prefixCharacters = "#-!+%@?";
constexpr PrefixEffect prefixEffects[] = {
    {'-', 0, 0},
    {'!', 0, 0},
    {'+', allFlags, ECHO_NOISY},
    {'%', allFlags, ECHO_DEBUG},
    {'@', allFlags, ECHO_IMMEDIATE},
};

std::uint32_t flagsWithPrefix(char prefix, std::uint32_t echoFlags) {
    for (const PrefixEffect& effect : prefixEffects)
        if (effect.prefix == prefix)
            return (echoFlags & effect.keptFlags) | effect.addedFlags;
    return echoFlags;
}

ErrorText unrecognised(std::string_view text) {
    return formatError("Unrecognised command: %s", std::string(text).c_str());
}

/// Substitutes the variables and calls the handler whose row of the command table matches the first word.
ErrorText callHandler(HandlerData& record, std::string_view commandText) {
    const std::optional<std::string> text = replaceVariables(scriptVariables(), commandText);
    if (!text)
        return formatError("Command too long after substitution (over %zu bytes)", substitutionLimit);
    std::string_view rest = *text;
    const std::optional<std::string_view> word = nextWord(rest);
    if (!word)
        return unrecognised(*text);
    const HandlerEntry& entry = findHandler(*word);
    return entry.handler(record, *text, *word, &entry);
}

} // namespace

std::optional<std::string> getScriptLine(ScriptSource& source, const char* deviceName) {
    if (deviceName != nullptr && source.batchLineDue) {
        source.batchLineDue = false;
        return "batchmode 1";
    }
    std::optional<std::string> line = std::exchange(source.immediateLine, std::nullopt);
    if (!line && source.lines != nullptr)
        line = readTextLine(*source.lines);
    if (line)
        ++source.lineCounter;
    return line;
}

PrefixedCommand splitPrefix(std::string_view piece) {
    const std::string_view text = trimwhitespace(piece);
    if (text.empty() || prefixCharacters.find(text.front()) == std::string_view::npos)
        return {'\0', text};
    return {text.front(), trimwhitespace(text.substr(1))};
}

ErrorText runScriptCommand(HandlerData& runRecord, std::string_view commandText, std::uint32_t echoFlags) {
    const PrefixedCommand piece = splitPrefix(commandText);
    const char prefix = piece.prefix;
    const std::string_view text = piece.command;
    if (prefix == '#' || (prefix == '\0' && text.empty()))
        return std::nullopt;
    if (prefix == '?' && text.empty())
        display_usage(deviceName(runRecord));

    const AtScopeEnd restore([prefix, debug = DEBUG, pause = getScriptPause()] {
        DEBUG = debug;
        if (prefix == '?')
            setScriptPause(pause);
    });
    if (prefix == '%')
        DEBUG = 1;
    if (prefix == '?')
        setScriptPause(1);
    const std::uint32_t flags = flagsWithPrefix(prefix, echoFlags);
    print(flags, "%s", std::string(trimRight(commandText)).c_str());
    return processLine(runRecord, text, flags);
}

ErrorText processLine(HandlerData& runRecord, std::string_view commandText, std::uint32_t echoFlags) {
    if (commandText.empty())
        return unrecognised(commandText);
    if (getScriptPause() != 0 && !confirmCommand(commandText))
        return std::nullopt;

    HandlerData record = newHandlerData(runRecord, echoFlags);
    record.outputHandler = stdOutputHandler;
    const bool immediate = (echoFlags & ECHO_IMMEDIATE) != 0;
    return immediate ? immediateHandler(record, commandText) : callHandler(record, commandText);
}

ErrorText immediateHandler(HandlerData& record, std::string_view text) {
    if (ErrorText error = refuseLineBreaks(text))
        return error;
    writeLineRaw(record, text);
    return getResponse(record);
}

void stdOutputHandler(HandlerData&, std::string_view text, bool addNewline) {
    writeText(stdout, text);
    if (addNewline)
        writeText(stdout, "\n");
    else
        flushOutput();
}

} // namespace secapp
