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

std::string quoted(std::string_view text, std::size_t limit) {
    constexpr unsigned char firstPrintable = ' ';
    constexpr unsigned char deleteCharacter = 0x7F;
    std::string shown(text.substr(0, limit));
    std::replace_if(
        shown.begin(), shown.end(),
        [](unsigned char c) { return c < firstPrintable || c == deleteCharacter; }, '?');
    return "'" + shown + (text.size() > limit ? "...'" : "'");
}

bool isNamed(const CheckedCommand& command, std::string_view name) {
    return command.entry != nullptr && command.entry->name != nullptr && command.entry->name == name;
}

bool isForTarget(const CheckedCommand& command) {
    return command.entry != nullptr && command.entry->name == nullptr;
}

bool showsText(const CheckedCommand& command) {
    return isNamed(command, "echo") || isNamed(command, "print") || isNamed(command, "pause");
}

} // namespace secapp
