#include "frontend/local_commands.h"

#include "frontend/prompt.h"
#include "link/timing.h"
#include "support/echo.h"
#include "support/numbers.h"

namespace secapp {
namespace {

/// The start time of the script's stopwatch, empty while it is stopped.
std::optional<TimePoint> timer;

ErrorText printElapsed(HandlerData& record) {
    if (!timer)
        return formatError("Timer not running");
    const auto elapsed = std::chrono::floor<std::chrono::milliseconds>(Clock::now() - *timer).count();
    show(record, formatText("Elapsed time %lld.%03ds\n", static_cast<long long>(elapsed / 1000),
                            static_cast<int>(elapsed % 1000)));
    return std::nullopt;
}

} // namespace

ErrorText echoHandler(HandlerData& record, std::string_view text, std::string_view, const HandlerEntry*) {
    print(record.echoFlags | ECHO_SCRIPT, "%s", std::string(argumentsOf(text)).c_str());
    return std::nullopt;
}

ErrorText delayHandler(HandlerData&, std::string_view text, std::string_view word, const HandlerEntry*) {
    std::string_view arguments = argumentWords(text);
    const std::optional<std::string_view> time = nextWord(arguments);
    if (!time)
        return formatError("No time specified for %s", std::string(word).c_str());
    std::uint32_t microseconds = 0;
    ErrorText error = decode(*time, microseconds);
    localSleep(microseconds);
    return error;
}

ErrorText pauseHandler(HandlerData&, std::string_view text, std::string_view, const HandlerEntry*) {
    const std::string_view message = argumentsOf(text);
    if (startsWithIgnoringCase(message, "on"))
        setScriptPause(1);
    else if (startsWithIgnoringCase(message, "off"))
        setScriptPause(0);
    else if (!waitForLine(message.empty() ? "Pause:" : message))
        return formatError("Unable to read from stdin\n");
    return std::nullopt;
}

ErrorText timerHandler(HandlerData& record, std::string_view text, std::string_view word,
                       const HandlerEntry* entry) {
    std::string_view arguments = argumentWords(text);
    const std::optional<std::string_view> operation = nextWord(arguments);
    if (!operation)
        return formatError("%s: Missing parameter %s", std::string(word).c_str(),
                           commandUsage(entry).c_str());
    if (*operation == "print")
        return printElapsed(record);
    if (*operation == "start" || *operation == "on")
        timer = Clock::now();
    else if (*operation == "stop" || *operation == "off")
        timer.reset();
    else
        return formatError("Unknown timer operation:%s", std::string(*operation).c_str());
    return std::nullopt;
}

} // namespace secapp
