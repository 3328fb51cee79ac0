/// Prints what documents, completions and word lists repeat from the code, one entry per line: the sort (a
/// command of secapp, an encoder, a command or a fault of the simulated target), the name or index, and the
/// arguments or settings. A tab separates the fields.

#include "faults/kinds.h"
#include "firmware/commands.h"
#include "frontend/command_table.h"
#include "transfer/encoders.h"

#include <algorithm>
#include <cstdio>
#include <string_view>

namespace {

void printCommands() {
    for (const secapp::HandlerEntry& entry : secapp::handlerEntries)
        if (entry.name != nullptr)
            std::printf("command\t%s\t\n", entry.name);
    for (std::size_t index = 0; index < secapp::bufferEncoder.size(); ++index)
        std::printf("encoder\t%zu\t%s\n", index, secapp::bufferEncoder[index].name);
}

/// False when the simulated target refuses to list its commands.
bool printTargetCommands() {
    vqxsim::Firmware firmware;
    vqxsim::Answer reply;
    if (vqxsim::runCommand(firmware, "helpadvanced", reply))
        return false;
    std::string_view lines = reply.text;
    while (!lines.empty()) {
        const std::string_view line = lines.substr(0, lines.find("\r\n"));
        lines.remove_prefix(line.size() + 2);
        const std::string_view word = line.substr(0, line.find(' '));
        const std::string_view arguments = line.substr(std::min(word.size() + 1, line.size()));
        std::printf("target\t%.*s\t%.*s\n", static_cast<int>(word.size()), word.data(),
                    static_cast<int>(arguments.size()), arguments.data());
    }
    return true;
}

void printFaults() {
    for (const vqxsim::FaultKind& kind : vqxsim::faultKinds())
        std::printf("fault\t%.*s\t%.*s\n", static_cast<int>(kind.name.size()), kind.name.data(),
                    static_cast<int>(kind.settings.size()), kind.settings.data());
}

} // namespace

int main() {
    printCommands();
    const bool isListed = printTargetCommands();
    printFaults();
    return isListed ? 0 : 1;
}
