#include "commands/passthrough.h"

#include "commands/expressions.h"
#include "link/protocol.h"

#include <cinttypes>

namespace secapp {
namespace {

/// The word as it is sent: its value, or the word itself if it does not evaluate.
std::string evaluated(HandlerData& record, std::optional<FlashList>& regions, std::string_view word) {
    if (word.front() == '+')
        return std::string(word);
    const Result<std::uint64_t> value = evaluateExpression(record, regions, word);
    return value ? formatText("%" PRIx64, *value) : std::string(word);
}

} // namespace

ErrorText genericHandler(HandlerData& record, std::string_view text, std::string_view, const HandlerEntry*) {
    return sendCommand(record, text);
}

ErrorText genericHandlerWithAddressParser(HandlerData& record, std::string_view text, std::string_view,
                                          const HandlerEntry*) {
    const std::optional<std::string_view> command = nextWord(text);
    if (!command)
        return std::nullopt;
    std::string line = std::string(*command) + " ";
    std::optional<FlashList> regions;
    while (const std::optional<std::string_view> word = nextWord(text))
        line.append(evaluated(record, regions, *word)).append(" ");
    return sendCommand(record, line);
}

} // namespace secapp
