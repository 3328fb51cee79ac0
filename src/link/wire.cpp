#include "link/wire.h"

#include "link/serial.h"
#include "support/echo.h"
#include "support/streams.h"
#include "support/text.h"

#include <algorithm>
#include <cerrno>

namespace secapp {
namespace {

using std::chrono::seconds;

constexpr int emptyWriteLimit = 3;
constexpr int defaultWriteTimeout = 5000;
constexpr seconds longestWriteTimeout = std::chrono::hours(24);
constexpr int millisecondsPerSecond = 1000;
constexpr std::size_t dumpLineLength = 16;

/// For how many time-outs lines that are not kept may go on.
constexpr int ignoredLineTimeouts = 10;

std::string lastTargetCommand;

/// A time-out as it counts: the whole seconds of it, and the one in which it is noticed.
seconds inWholeSeconds(int timeout) {
    return seconds(timeout / millisecondsPerSecond + 1);
}

void printTimerWithLabel(int timer, const char* name) {
    localTimerExt(TIMER_PRINT, timer, std::string(name) + " timer (" + lastTargetCommand + "): %s\n");
}

float secondsOn(int timer) {
    const TimerResult elapsed = localTimerExt(TIMER_SECONDS, timer);
    return std::holds_alternative<float>(elapsed) ? std::get<float>(elapsed) : 0.0F;
}

bool isOver(const std::optional<TimePoint>& until) {
    return until && Clock::now() >= *until;
}

void sleepBetweenReads(const HandlerData& record, const std::optional<TimePoint>& until) {
    localTimerExt(TIMER_START, SLEEP_TIMER);
    localSleep(1);
    const bool shown = (record.echoFlags & ECHO_SLEEP_TIMER) != 0;
    if (shown)
        localTimerExt(TIMER_PRINT, SLEEP_TIMER, "Time elapsed during sleep: %ss\n");
    localTimerExt(TIMER_STOP, SLEEP_TIMER);
    if (shown)
        return;
    // Nothing but a byte can change anything before the next whole second, at which dots and time-outs are
    // due: one wait stands for all the reads and sleeps up to it.
    const float elapsed = secondsOn(LINE_WAIT_TIMER);
    const float wholeSeconds = static_cast<float>(static_cast<std::int64_t>(elapsed));
    const std::chrono::duration<float> rest(wholeSeconds + 1.0F - elapsed);
    auto time = std::chrono::duration_cast<Clock::duration>(rest);
    if (until)
        time = std::min(time, *until - Clock::now());
    serial_awaitInput(*record.port, time);
}

/// Waits for a line until it has come, the port has failed or the time is over; the result is that of the
/// last read.
int awaitLine(HandlerData& record, std::string& line, int capacity, int timeout,
              const std::optional<TimePoint>& until) {
    bool slept = false;
    std::int64_t lastDot = 0;
    int result = 0;
    for (;;) {
        result = serial_readLine(*record.port, line, capacity, 1, until);
        if (result > 0 || record.port->error != EAGAIN || isOver(until))
            break;
        const auto elapsed = static_cast<std::int64_t>(secondsOn(LINE_WAIT_TIMER));
        if (timeout > 0 && timeout < elapsed * millisecondsPerSecond)
            break;
        if (getReadlineEchoPeriod() > 0 && record.outputHandler != nullptr &&
            elapsed - lastDot >= getReadlineEchoPeriod()) {
            record.outputHandler(record, ".", false);
            lastDot = elapsed;
        }
        if (!slept)
            debug_print("Sleeping");
        slept = true;
        sleepBetweenReads(record, until);
    }
    if (slept)
        debug_print("Wake");
    if (result < 0 && record.port->error != EAGAIN)
        debug_print("No chars. errno=%d", serial_getError(*record.port));
    return result;
}

void keepLine(HandlerData& record, std::string_view line) {
    record.response += line;
    record.response += '\n';
    if (record.outputHandler != nullptr)
        record.outputHandler(record, line, true);
}

void endCommandTimer(const HandlerData& record) {
    if ((record.echoFlags & ECHO_COMMAND_TIMER) != 0)
        printTimerWithLabel(COMMAND_TIMER, "Command");
    localTimerExt(TIMER_STOP, COMMAND_TIMER);
}

Answer timedOut(HandlerData& record) {
    record.port->error = EAGAIN;
    return {AnswerEnd::lost, serial_get_error(*record.port)};
}

} // namespace

void setLastTargetCommand(std::string_view text) {
    lastTargetCommand = trimwhitespace(text);
}

const std::string& getLastTargetCommand() {
    return lastTargetCommand;
}

std::string composeLine(const HandlerData& record, std::string_view text, std::string_view prefix,
                        std::string_view suffix) {
    if (getAutoDelay() != 0)
        localSleep(getAutoDelay());
    std::string line;
    line.reserve(prefix.size() + text.size() + suffix.size());
    line.append(prefix).append(text).append(suffix);
    if ((record.echoFlags & echoTargetMask) != 0)
        writeText(stderr, line + "\n");
    setLastTargetCommand(line);
    return line;
}

ErrorText writeAll(const HandlerData& record, std::span<const std::uint8_t> bytes, Clock::duration timeout) {
    Port& port = *record.port;
    const TimePoint deadline = Clock::now() + timeout;
    for (int tries = emptyWriteLimit; tries > 0;) {
        const int written = writeRaw(record, bytes);
        if (written < 0) {
            if (port.error == EAGAIN && serial_awaitOutput(port, deadline))
                continue;
            return serial_get_error(port);
        }
        bytes = bytes.subspan(static_cast<std::size_t>(written));
        if (bytes.empty())
            return std::nullopt;
        if (written == 0)
            --tries;
    }
    port.error = EAGAIN;
    return serial_get_error(port);
}

ErrorText sendLine(const HandlerData& record, std::string_view line, Clock::duration timeout) {
    localTimerExt(TIMER_START, COMMAND_TIMER);
    return writeAll(record, bytesOf(line), timeout);
}

Clock::duration writeTimeout() {
    return std::min(inWholeSeconds(getTimeoutms() > 0 ? getTimeoutms() : defaultWriteTimeout),
                    longestWriteTimeout);
}

Answer collectAnswer(HandlerData& record, int timeout, const std::optional<TimePoint>& until) {
    constexpr std::string_view okStatus = "VQX_OK";
    constexpr std::string_view errorStatus = "VQX_ERROR";
    constexpr std::string_view fatalStatus = "VQX_FATAL";
    std::size_t collected = record.response.size();
    TimePoint lastKept = Clock::now();
    std::string line;
    for (;;) {
        const int result = readLine(record, line, answerLineLimit, timeout, until);
        if (result < 1)
            return {AnswerEnd::lost, serial_get_error(*record.port)};
        debug_print("Data received: <%.*s>", result, line.c_str());
        const std::string_view text = trimwhitespace(line);
        if (text.starts_with(okStatus)) {
            endCommandTimer(record);
            return {AnswerEnd::ok, {}};
        }
        collected += static_cast<std::size_t>(result);
        if (collected > responseLimit)
            return {AnswerEnd::lost, formatText("Answer too long (over %zu bytes)", responseLimit)};
        if (!text.empty() && text.front() != '=') {
            keepLine(record, text);
            if (startsWithIgnoringCase(text, errorStatus) || startsWithIgnoringCase(text, fatalStatus))
                return {AnswerEnd::refused, std::string(trimwhitespace(text.substr(errorStatus.size())))};
            lastKept = Clock::now();
        } else if (timeout > 0 && Clock::now() - lastKept > ignoredLineTimeouts * inWholeSeconds(timeout)) {
            return timedOut(record);
        }
        if (isOver(until))
            return timedOut(record);
    }
}

void dumpBuffer(std::span<const std::uint8_t> bytes) {
    std::string dump;
    for (std::size_t offset = 0; offset < bytes.size(); ++offset) {
        if (offset % dumpLineLength == 0)
            dump += formatText("\n0x%08x: ", static_cast<unsigned>(offset));
        dump += formatText("%02x ", bytes[offset]);
    }
    writeText(stderr, dump + "\n");
}

int writeRaw(const HandlerData& record, std::span<const std::uint8_t> bytes) {
    if ((record.echoFlags & ECHO_BUFFER) != 0)
        dumpBuffer(bytes);
    return serial_write(*record.port, bytes);
}

int readLine(HandlerData& record, std::string& line, int capacity, int timeout,
             const std::optional<TimePoint>& until) {
    localTimerExt(TIMER_START, LINE_WAIT_TIMER);
    localTimerExt(TIMER_START, READ_TIMER);
    std::string received;
    const int result = awaitLine(record, received, capacity, timeout, until);
    if (result > 0 || !received.empty())
        line = std::move(received);
    if ((record.echoFlags & echoReadMask) != 0)
        writeText(stdout, line + "\n");
    if ((record.echoFlags & ECHO_READ_TIMER) != 0)
        printTimerWithLabel(READ_TIMER, "Read");
    localTimerExt(TIMER_STOP, READ_TIMER);
    localTimerExt(TIMER_STOP, LINE_WAIT_TIMER);
    return result;
}

} // namespace secapp
