#include "commands/passthrough.h"

#include "commands/expressions.h"
#include "link/protocol.h"

#include <cinttypes>

namespace secapp {

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
    while (const std::optional<std::string_view> word = nextWord(text)) {
        std::uint64_t value = 0;
        // A word that does not evaluate is the target's own business.
        if (word->front() == '+' || evaluateExpression(record, regions, *word, value))
            line.append(*word);
        else
            line.append(formatText("%" PRIx64, value));
        line += ' ';
    }
    return sendCommand(record, line);
}

} // namespace secapp
