#include "checker/spelling.h"

#include "frontend/command_table.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

namespace secapp {
namespace {

/// The commands of the companion firmware that are not commands of secapp.
constexpr std::string_view targetCommands[] = {"batchmode", "bootBank",     "databurst",     "dataPacket",
                                               "dataSet",   "DebugOptions", "eraseFlash",    "help",
                                               "readWord",  "helpadvanced", "otp_ProgUSBID", "programPage",
                                               "queryID",   "queryMORVI",   "queryPart",     "verifyPage"};

std::string lowered(std::string_view word) {
    std::string lower(word);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return lower;
}

/// The number of letters to add, leave out, replace or swap with the next one in order to get from one word
/// to the other, regardless of case.
std::size_t distance(std::string_view from, std::string_view to) {
    const std::string a = lowered(from);
    const std::string b = lowered(to);
    std::vector<std::vector<std::size_t>> steps(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = 0; i <= a.size(); ++i) {
        for (std::size_t j = 0; j <= b.size(); ++j) {
            if (i == 0 || j == 0) {
                steps[i][j] = i + j;
                continue;
            }
            steps[i][j] = std::min({steps[i - 1][j] + 1, steps[i][j - 1] + 1,
                                    steps[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1)});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                steps[i][j] = std::min(steps[i][j], steps[i - 2][j - 2] + 1);
        }
    }
    return steps[a.size()][b.size()];
}

bool resembles(std::string_view word, std::string_view command, std::size_t limit) {
    return word.size() <= command.size() + limit && distance(word, command) <= limit;
}

} // namespace

bool isTargetCommand(std::string_view word) {
    return std::find(std::begin(targetCommands), std::end(targetCommands), word) != std::end(targetCommands);
}

std::optional<std::string_view> similarCommand(std::string_view word) {
    constexpr std::size_t shortName = 5;
    if (isTargetCommand(word))
        return std::nullopt;
    for (const HandlerEntry& entry : handlerEntries) {
        if (entry.name == nullptr)
            continue;
        const std::string_view name = entry.name;
        if (resembles(word, name, name.size() > shortName ? 2 : 1))
            return name;
    }
    // Commands of the target can differ by few letters.
    for (const std::string_view command : targetCommands)
        if (resembles(word, command, 1))
            return command;
    return std::nullopt;
}

} // namespace secapp
