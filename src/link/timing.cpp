#include "link/timing.h"

#include "support/text.h"

#include <array>
#include <cstdlib>
#include <ctime>
#include <optional>

#include <unistd.h>

namespace secapp {
namespace {

constexpr int microsecondsPerSecond = 1000000;

std::int32_t globalTimeoutms = 5000;
std::int32_t eraseTimeoutms = -1;
std::int32_t readlineEchoPeriod = 0;
std::uint32_t autoDelay = 0;

std::array<std::optional<timeval>, 10> slots;

void printTimer(int slot, const std::string& elapsed, std::string_view format) {
    const std::string standard = formatText("Timer %d: %%s\n", slot);
    if (format.empty())
        format = standard;
    std::string line(format);
    // The last one: a label in front of it may hold a "%s" of its own.
    if (const std::size_t at = line.rfind("%s"); at != std::string::npos)
        line.replace(at, 2, elapsed);
    writeText(stderr, line);
}

} // namespace

timeval currentTime() {
    timespec now{};
    // Not the wall clock: a time-out must not grow or shrink when somebody sets it.
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return {.tv_sec = now.tv_sec, .tv_usec = now.tv_nsec / 1000};
}

int timeval_subtract(timeval& result, const timeval& x, timeval& y) {
    if (x.tv_usec < y.tv_usec) {
        const long n = (y.tv_usec - x.tv_usec) / microsecondsPerSecond + 1;
        y.tv_usec -= microsecondsPerSecond * n;
        y.tv_sec += n;
    }
    if (x.tv_usec - y.tv_usec > microsecondsPerSecond) {
        const long n = (x.tv_usec - y.tv_usec) / microsecondsPerSecond;
        y.tv_usec += microsecondsPerSecond * n;
        y.tv_sec -= n;
    }
    result.tv_sec = x.tv_sec - y.tv_sec;
    result.tv_usec = x.tv_usec - y.tv_usec;
    return x.tv_sec < y.tv_sec ? 1 : 0;
}

timeval elapsedSince(timeval start) {
    timeval elapsed{};
    timeval_subtract(elapsed, currentTime(), start);
    return elapsed;
}

double secondsOf(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / microsecondsPerSecond;
}

TimerResult localTimerExt(int operation, int slot, std::string_view format) {
    if (slot < 0 || slot >= static_cast<int>(slots.size())) {
        writeText(stderr, formatText("Internal error: invalid timer specified (%d)\n", slot));
        std::exit(-1);
    }
    std::optional<timeval>& timer = slots[static_cast<std::size_t>(slot)];
    if (operation == TIMER_START) {
        timer = currentTime();
        return {};
    }
    if (operation == TIMER_STOP) {
        timer.reset();
        return {};
    }
    if (!timer || operation < TIMER_START || operation > TIMER_SECONDS)
        return {};

    const timeval elapsed = elapsedSince(*timer);
    if (operation == TIMER_SECONDS)
        return static_cast<float>(secondsOf(elapsed));
    std::string text =
        formatText("%ld.%06d", static_cast<long>(elapsed.tv_sec), static_cast<int>(elapsed.tv_usec));
    if (operation == TIMER_TEXT)
        return text;
    printTimer(slot, text, format);
    return {};
}

void localSleep(std::uint32_t microseconds) {
    ::usleep(microseconds);
}

void useInternalSleepAlgorithm() {}

std::int32_t getTimeoutms() {
    return globalTimeoutms;
}

void setTimeoutms(std::int32_t milliseconds) {
    globalTimeoutms = milliseconds;
}

std::int32_t getEraseTimeoutms() {
    return eraseTimeoutms;
}

void setEraseTimeoutms(std::int32_t milliseconds) {
    eraseTimeoutms = milliseconds;
}

std::int32_t getReadlineEchoPeriod() {
    return readlineEchoPeriod;
}

std::int32_t setReadlineEchoPeriod(std::int32_t seconds) {
    const std::int32_t previous = readlineEchoPeriod;
    readlineEchoPeriod = seconds;
    return previous;
}

std::uint32_t getAutoDelay() {
    return autoDelay;
}

void setAutoDelay(std::uint32_t microseconds) {
    autoDelay = microseconds;
}

} // namespace secapp
