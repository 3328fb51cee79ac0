#include "checker/inspection.h"

#include <algorithm>
#include <utility>

namespace secapp {

void addError(Inspection& inspection, std::string text) {
    inspection.findings.push_back({inspection.line, Severity::error, std::move(text)});
}

void addWarning(Inspection& inspection, std::string text) {
    inspection.findings.push_back({inspection.line, Severity::warning, std::move(text)});
}

std::string quoted(std::string_view text) {
    constexpr std::size_t shownLength = 40;
    constexpr unsigned char firstPrintable = ' ';
    constexpr unsigned char deleteCharacter = 0x7F;
    std::string shown(text.substr(0, shownLength));
    std::replace_if(
        shown.begin(), shown.end(),
        [](unsigned char c) { return c < firstPrintable || c == deleteCharacter; }, '?');
    return "'" + shown + (text.size() > shownLength ? "...'" : "'");
}

bool isCommand(const CheckedCommand& command, std::string_view name) {
    return command.entry != nullptr && command.entry->name != nullptr && command.entry->name == name;
}

bool showsText(const CheckedCommand& command) {
    return isCommand(command, "echo") || isCommand(command, "print") || isCommand(command, "pause");
}

} // namespace secapp
