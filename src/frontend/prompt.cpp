#include "frontend/prompt.h"

#include "support/line_source.h"
#include "support/streams.h"
#include "support/text.h"

#include <cstdio>
#include <cstdlib>

namespace secapp {
namespace {

std::int32_t scriptPause = 0;

std::optional<std::string> askUser(std::string_view question) {
    writeText(stdout, question);
    flushOutput();
    return readTextLine(standardInput());
}

} // namespace

std::int32_t getScriptPause() {
    return scriptPause;
}

void setScriptPause(std::int32_t pause) {
    scriptPause = pause;
}

bool confirmCommand(std::string_view text) {
    const std::string command(text);
    const std::optional<std::string> answer = askUser("Execute '" + command + "'? (Y/n/q)");
    if (!answer)
        writeText(stderr, "Unable to read from stdin\n");
    if (!answer || startsWithIgnoringCase(*answer, "q")) {
        writeText(stderr, "Quiting\n");
        std::exit(1);
    }
    if (!startsWithIgnoringCase(*answer, "n"))
        return true;
    writeText(stderr, "Skipped '" + command + "'\n");
    return false;
}

bool waitForLine(std::string_view message) {
    return askUser(message).has_value();
}

} // namespace secapp
