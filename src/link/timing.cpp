#include "link/timing.h"

#include "support/streams.h"
#include "support/text.h"

#include <array>
#include <cstdlib>
#include <optional>

#include <unistd.h>

namespace secapp {
namespace {

constexpr int microsecondsPerSecond = 1000000;

struct Timing {
    ClockCalls calls = systemClockCalls;
    std::int32_t globalTimeoutms = 5000;
    std::int32_t eraseTimeoutms = -1;
    std::int32_t readlineEchoPeriod = 0;
    std::uint32_t autoDelay = 0;
    /// When each running stopwatch was started.
    std::array<std::optional<timeval>, 10> slots;
} timing;

timeval currentTime() {
    const auto now = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now().time_since_epoch());
    timeval time{};
    time.tv_sec = static_cast<decltype(time.tv_sec)>(now.count() / microsecondsPerSecond);
    time.tv_usec = static_cast<decltype(time.tv_usec)>(now.count() % microsecondsPerSecond);
    return time;
}

void printTimer(int slot, const std::string& elapsed, std::string_view format) {
    const std::string standard = formatText("Timer %d: %%s\n", slot);
    if (format.empty())
        format = standard;
    std::string line(format);
    // The last one: a label before it may also contain "%s".
    if (const std::size_t at = line.rfind("%s"); at != std::string::npos)
        line.replace(at, 2, elapsed);
    writeText(stderr, line);
}

} // namespace

const ClockCalls systemClockCalls = {
    .now = std::chrono::steady_clock::now,
    .sleep = [](std::uint32_t microseconds) { ::usleep(microseconds); },
};

void setClockCalls(const ClockCalls& calls) {
    timing.calls = calls;
}

TimePoint Clock::now() {
    return timing.calls.now();
}

double secondsOf(Clock::duration time) {
    return std::chrono::duration<double>(time).count();
}

int timeval_subtract(timeval& result, const timeval& x, timeval& y) {
    if (x.tv_usec < y.tv_usec) {
        const auto n = (y.tv_usec - x.tv_usec) / microsecondsPerSecond + 1;
        y.tv_usec -= microsecondsPerSecond * n;
        y.tv_sec += n;
    }
    if (x.tv_usec - y.tv_usec > microsecondsPerSecond) {
        const auto n = (x.tv_usec - y.tv_usec) / microsecondsPerSecond;
        y.tv_usec += microsecondsPerSecond * n;
        y.tv_sec -= n;
    }
    result.tv_sec = x.tv_sec - y.tv_sec;
    result.tv_usec = x.tv_usec - y.tv_usec;
    return x.tv_sec < y.tv_sec ? 1 : 0;
}

TimerResult localTimerExt(int operation, int slot, std::string_view format) {
    if (slot < 0 || slot >= static_cast<int>(timing.slots.size())) {
        writeText(stderr, formatText("Internal error: invalid timer specified (%d)\n", slot));
        std::exit(-1);
    }
    std::optional<timeval>& timer = timing.slots[static_cast<std::size_t>(slot)];
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

    timeval elapsed{};
    timeval start = *timer;
    timeval_subtract(elapsed, currentTime(), start);
    if (operation == TIMER_SECONDS)
        return static_cast<float>(static_cast<double>(elapsed.tv_sec) +
                                  static_cast<double>(elapsed.tv_usec) / microsecondsPerSecond);
    std::string text =
        formatText("%lld.%06d", static_cast<long long>(elapsed.tv_sec), static_cast<int>(elapsed.tv_usec));
    if (operation == TIMER_TEXT)
        return text;
    printTimer(slot, text, format);
    return {};
}

void localSleep(std::uint32_t microseconds) {
    timing.calls.sleep(microseconds);
}

void useInternalSleepAlgorithm() {}

std::int32_t getTimeoutms() {
    return timing.globalTimeoutms;
}

void setTimeoutms(std::int32_t milliseconds) {
    timing.globalTimeoutms = milliseconds;
}

std::int32_t getEraseTimeoutms() {
    return timing.eraseTimeoutms;
}

void setEraseTimeoutms(std::int32_t milliseconds) {
    timing.eraseTimeoutms = milliseconds;
}

std::int32_t getReadlineEchoPeriod() {
    return timing.readlineEchoPeriod;
}

std::int32_t setReadlineEchoPeriod(std::int32_t seconds) {
    const std::int32_t previous = timing.readlineEchoPeriod;
    timing.readlineEchoPeriod = seconds;
    return previous;
}

std::uint32_t getAutoDelay() {
    return timing.autoDelay;
}

void setAutoDelay(std::uint32_t microseconds) {
    timing.autoDelay = microseconds;
}

} // namespace secapp
