#include "link/wire.h"

#include "link/serial.h"
#include "link/timing.h"
#include "support/echo.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>

namespace secapp {
namespace {

constexpr int emptyWriteLimit = 3;
constexpr int defaultPatience = 5000;
constexpr int longestPatienceSeconds = 86400;
constexpr int millisecondsPerSecond = 1000;
constexpr std::size_t dumpLineLength = 16;

std::string lastTargetCommand;

void printTimerWithLabel(int timer, const char* name) {
    localTimerExt(TIMER_PRINT, timer, std::string(name) + " timer (" + lastTargetCommand + "): %s\n");
}

float secondsOn(int timer) {
    const TimerResult seconds = localTimerExt(TIMER_SECONDS, timer);
    return std::holds_alternative<float>(seconds) ? std::get<float>(seconds) : 0.0F;
}

void sleepBetweenReads(const HandlerData& record) {
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
    const float seconds = secondsOn(LINE_WAIT_TIMER);
    const float wholeSeconds = static_cast<float>(static_cast<std::int64_t>(seconds));
    serial_awaitInput(record.serialHandle,
                      static_cast<std::int64_t>((wholeSeconds + 1.0F - seconds) * 1000000.0F));
}

/// Waits for a line until it has come, the port has failed or the time is over; the result is that of the
/// last read.
int awaitLine(HandlerData& record, std::string& line, int capacity, int timeout) {
    std::string arrived;
    bool slept = false;
    std::int64_t lastDot = 0;
    int result = 0;
    for (;;) {
        result = serial_readLine(record.serialHandle, arrived, capacity, 1);
        if (result > 0 || serial_getError() != EAGAIN)
            break;
        const auto seconds = static_cast<std::int64_t>(secondsOn(LINE_WAIT_TIMER));
        if (timeout > 0 && timeout < seconds * millisecondsPerSecond)
            break;
        if (getReadlineEchoPeriod() > 0 && record.outputHandler != nullptr &&
            seconds - lastDot >= getReadlineEchoPeriod()) {
            record.outputHandler(record, ".", false);
            lastDot = seconds;
        }
        if (!slept)
            debug_print("Sleeping");
        slept = true;
        sleepBetweenReads(record);
    }
    // What came of a line that did not end is worth seeing in a trace.
    if (result > 0 || !arrived.empty())
        line = std::move(arrived);
    if (slept)
        debug_print("Wake");
    if (result < 0 && serial_getError() != EAGAIN)
        debug_print("No chars. errno=%d", serial_getError());
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

} // namespace

void setLastTargetCommand(std::string_view text) {
    lastTargetCommand = trimwhitespace(text);
}

const std::string& getLastTargetCommand() {
    return lastTargetCommand;
}

void dumpBuffer(std::span<const std::uint8_t> bytes) {
    for (std::size_t offset = 0; offset < bytes.size(); ++offset) {
        if (offset % dumpLineLength == 0)
            writeText(stderr, formatText("\n0x%08x: ", static_cast<unsigned>(offset)));
        writeText(stderr, formatText("%02x ", bytes[offset]));
    }
    writeText(stderr, "\n");
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

int writeRaw(const HandlerData& record, std::span<const std::uint8_t> bytes) {
    if ((record.echoFlags & ECHO_BUFFER) != 0)
        dumpBuffer(bytes);
    return serial_write(record.serialHandle, bytes);
}

int writeAll(const HandlerData& record, std::span<const std::uint8_t> bytes, int patience) {
    int tries = emptyWriteLimit;
    for (;;) {
        const int written = writeRaw(record, bytes);
        if (written < 0) {
            if (serial_getError() == EAGAIN && serial_awaitOutput(record.serialHandle, patience))
                continue;
            return written;
        }
        bytes = bytes.subspan(static_cast<std::size_t>(written));
        if (bytes.empty())
            return written;
        if (written == 0 && --tries == 0) {
            errno = EAGAIN;
            return 0;
        }
    }
}

int sendLine(const HandlerData& record, std::string_view line, int patience) {
    localTimerExt(TIMER_START, COMMAND_TIMER);
    return writeAll(record, bytesOf(line), patience);
}

int writePatience() {
    // In whole seconds like the time-out itself.
    const int seconds = (getTimeoutms() > 0 ? getTimeoutms() : defaultPatience) / millisecondsPerSecond;
    return std::min(seconds, longestPatienceSeconds) * millisecondsPerSecond + millisecondsPerSecond;
}

int readLine(HandlerData& record, std::string& line, int capacity, int timeout) {
    localTimerExt(TIMER_START, LINE_WAIT_TIMER);
    localTimerExt(TIMER_START, READ_TIMER);
    const int result = awaitLine(record, line, capacity, timeout);
    const int error = errno;
    if ((record.echoFlags & echoReadMask) != 0)
        writeText(stdout, line + "\n");
    if ((record.echoFlags & ECHO_READ_TIMER) != 0)
        printTimerWithLabel(READ_TIMER, "Read");
    localTimerExt(TIMER_STOP, READ_TIMER);
    localTimerExt(TIMER_STOP, LINE_WAIT_TIMER);
    errno = error;
    return result;
}

ErrorText collectAnswer(HandlerData& record, int timeout, const std::optional<timeval>& until) {
    constexpr std::string_view okStatus = "VQX_OK";
    constexpr std::string_view errorStatus = "VQX_ERROR";
    constexpr std::string_view fatalStatus = "VQX_FATAL";
    std::string line;
    for (;;) {
        const int result = readLine(record, line, answerLineLimit, timeout);
        if (result < 1)
            return serial_get_error();
        debug_print("Data received: <%.*s>", result, line.c_str());
        const std::string_view text = trimwhitespace(line);
        if (text.starts_with(okStatus)) {
            endCommandTimer(record);
            return std::nullopt;
        }
        if (!text.empty() && text.front() != '=') {
            if (record.response.size() + text.size() >= responseLimit)
                return formatError("Answer too long (over %zu bytes)", responseLimit);
            keepLine(record, text);
            if (startsWithIgnoringCase(text, errorStatus) || startsWithIgnoringCase(text, fatalStatus))
                return std::string(trimwhitespace(text.substr(errorStatus.size())));
        }
        timeval remaining{};
        timeval now = currentTime();
        if (until && timeval_subtract(remaining, *until, now) == 1) {
            errno = EAGAIN;
            return serial_get_error();
        }
    }
}

} // namespace secapp
