#include "commands/boot_and_identity.h"

#include "link/protocol.h"

namespace secapp {
namespace {

constexpr std::size_t lineLimit = 255;

std::optional<int> bankNumber(std::string_view word) {
    if (equalsIgnoringCase(word, "BankA") || word == "0")
        return 0;
    if (equalsIgnoringCase(word, "BankB") || word == "1")
        return 1;
    return std::nullopt;
}

} // namespace

ErrorText setBootHandler(HandlerData& record, std::string_view text, std::string_view word,
                         const HandlerEntry*) {
    std::string_view arguments = argumentWords(text);
    const std::optional<std::string_view> name = nextWord(arguments);
    if (!name)
        return formatError("No parameter provided for %s", std::string(word).c_str());
    const std::optional<int> bank = bankNumber(*name);
    if (!bank)
        return formatError("Unknown boot bank '%s'", std::string(*name).c_str());
    return sendCommand(record, formatText("bootBank %d", *bank));
}

ErrorText setVidPidHandler(HandlerData& record, std::string_view text, std::string_view word,
                           const HandlerEntry*) {
    std::string_view arguments = argumentWords(text);
    const std::optional<std::string_view> vid = nextWord(arguments);
    if (!vid)
        return formatError("No vid or pid provided for %s", std::string(word).c_str());
    const std::optional<std::string_view> pid = nextWord(arguments);
    if (!pid)
        return formatError("No pid provided for %s", std::string(word).c_str());
    const std::string line =
        formatText("otp_ProgUSBID %s %s", std::string(*pid).c_str(), std::string(*vid).c_str());
    if (line.size() > lineLimit)
        return formatError("Line too long for %s", std::string(word).c_str());
    return sendCommand(record, line);
}

} // namespace secapp
