#include "link/wire.h"

#include "link/serial.h"
#include "support/echo.h"
#include "support/streams.h"
#include "support/text.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace secapp {
namespace {

using std::chrono::seconds;

constexpr int emptyWriteLimit = 3;
constexpr int defaultWriteTimeout = 5000;
constexpr seconds longestWriteTimeout = std::chrono::hours(24);
constexpr int millisecondsPerSecond = 1000;
constexpr std::size_t dumpLineLength = 16;

/// How many time-outs pass while only ignored lines are received.
constexpr int ignoredLineTimeouts = 10;

std::string lastTargetCommand;

/// A time-out in ms, extended to the next whole second: 1 ms is 1 s, 5000 ms are 6 s.
seconds inWholeSeconds(int timeout) {
    return seconds(timeout / millisecondsPerSecond + 1);
}

void printTimerWithLabel(int timer, const char* name) {
    localTimerExt(TIMER_PRINT, timer, std::string(name) + " timer (" + lastTargetCommand + "): %s\n");
}

/// Sleeps between two reads and shows for how long.
void showSleep() {
    localTimerExt(TIMER_START, SLEEP_TIMER);
    localSleep(1);
    localTimerExt(TIMER_PRINT, SLEEP_TIMER, "Time elapsed during sleep: %ss\n");
    localTimerExt(TIMER_STOP, SLEEP_TIMER);
}

/// Shows a progress dot when one is due after `elapsed` of waiting.
void showProgress(HandlerData& record, seconds elapsed, seconds& lastDot) {
    const seconds period(getReadlineEchoPeriod());
    if (period <= seconds(0) || record.outputHandler == nullptr || elapsed - lastDot < period)
        return;
    record.outputHandler(record, ".", false);
    lastDot = elapsed;
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

Answer collectAnswer(HandlerData& record, int timeout, TimePoint limit) {
    constexpr std::string_view okStatus = "VQX_OK";
    constexpr std::string_view errorStatus = "VQX_ERROR";
    constexpr std::string_view fatalStatus = "VQX_FATAL";
    std::size_t collected = record.response.size();
    TimePoint lastKept = Clock::now();
    std::string line;
    for (;;) {
        if (readLine(record, line, answerLineLimit, timeout, limit) != LineEnd::line)
            return {AnswerEnd::lost, serial_get_error(*record.port)};
        debug_print("Data received: <%s>", line.c_str());
        const std::string_view text = trimwhitespace(line);
        if (text.starts_with(okStatus)) {
            endCommandTimer(record);
            return {AnswerEnd::ok, {}};
        }
        collected += line.size() + 1;
        if (collected > responseLimit)
            return {AnswerEnd::lost, formatText("Answer too long (over %zu bytes)", responseLimit)};
        const bool kept = !text.empty() && text.front() != '=';
        if (kept) {
            keepLine(record, text);
            if (startsWithIgnoringCase(text, errorStatus) || startsWithIgnoringCase(text, fatalStatus))
                return {AnswerEnd::refused, std::string(trimwhitespace(text.substr(errorStatus.size())))};
        }
        const TimePoint now = Clock::now();
        if (kept)
            lastKept = now;
        if (now >= limit || (timeout > 0 && now - lastKept > ignoredLineTimeouts * inWholeSeconds(timeout)))
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

LineEnd readLine(HandlerData& record, std::string& line, std::size_t capacity, int timeout, TimePoint limit) {
    localTimerExt(TIMER_START, READ_TIMER);
    const TimePoint start = Clock::now();
    const TimePoint end = timeout > 0 ? std::min(limit, start + inWholeSeconds(timeout)) : limit;
    const bool showsSleeps = (record.echoFlags & ECHO_SLEEP_TIMER) != 0;
    std::string received;
    bool slept = false;
    seconds lastDot(0);
    TimePoint deadline = start;
    LineEnd result = LineEnd::failed;
    while ((result = serial_readLine(*record.port, received, capacity, deadline, limit)) ==
           LineEnd::timedOut) {
        const TimePoint now = Clock::now();
        if (now >= end)
            break;
        const auto elapsed = std::chrono::floor<seconds>(now - start);
        showProgress(record, elapsed, lastDot);
        if (!std::exchange(slept, true))
            debug_print("Sleeping");
        if (showsSleeps)
            showSleep();
        // Dots and time-outs are due at whole seconds: until the next one only a received byte matters.
        deadline = showsSleeps ? now : start + elapsed + seconds(1);
    }
    if (slept)
        debug_print("Wake");
    if (result == LineEnd::failed)
        debug_print("No chars. errno=%d", serial_getError(*record.port));
    if (result == LineEnd::line || !received.empty())
        line = std::move(received);
    if ((record.echoFlags & echoReadMask) != 0)
        writeText(stdout, line + "\n");
    if ((record.echoFlags & ECHO_READ_TIMER) != 0)
        printTimerWithLabel(READ_TIMER, "Read");
    localTimerExt(TIMER_STOP, READ_TIMER);
    return result;
}

} // namespace secapp
