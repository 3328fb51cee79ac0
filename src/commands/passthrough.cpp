#include "commands/passthrough.h"

#include "commands/expressions.h"
#include "link/protocol.h"

namespace secapp {

ErrorText genericHandler(HandlerData& record, std::string_view text, std::string_view /*word*/,
                         const HandlerEntry* /*entry*/) {
    return exchange(record, text);
}

ErrorText genericHandlerWithAddressParser(HandlerData& record, std::string_view text,
                                          std::string_view /*word*/, const HandlerEntry* /*entry*/) {
    const std::optional<std::string_view> command = nextWord(text);
    if (!command)
        return std::nullopt;
    std::string line = std::string(*command) + " ";
    TransferDescriptor holder;
    while (const std::optional<std::string_view> word = nextWord(text)) {
        std::uint64_t value = 0;
        // A word that does not evaluate is the target's own business.
        if (word->front() == '+' || evaluateExpression(record, holder, *word, value))
            line.append(*word);
        else
            line.append(formatText("%lx", static_cast<unsigned long>(value)));
        line += ' ';
    }
    return exchange(record, line);
}

} // namespace secapp
