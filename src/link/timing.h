#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <variant>

#include <sys/time.h>

namespace secapp {

/// The operations of `localTimerExt`.
inline constexpr int TIMER_START = 0;
inline constexpr int TIMER_STOP = 1;
inline constexpr int TIMER_PRINT = 2;
inline constexpr int TIMER_TEXT = 3;
inline constexpr int TIMER_SECONDS = 4;

/// The stopwatch slots in use, of ten (0 to 9).
inline constexpr int READ_TIMER = 0;
inline constexpr int COMMAND_TIMER = 1;
inline constexpr int SLEEP_TIMER = 9;

/// The elapsed time as text ("seconds.microseconds", six places) or as seconds; nothing from the other
/// operations, from a slot that is not running and from an unknown operation.
using TimerResult = std::variant<std::monostate, std::string, float>;

/// Starts, stops or reads a stopwatch. `TIMER_PRINT` writes `format` to standard error with its last "%s"
/// replaced by the elapsed text; without a format "Timer N: " and the text. A slot outside 0 to 9 ends the
/// program with status 255.
TimerResult localTimerExt(int operation, int slot, std::string_view format = {});

/// The one clock of the link. It only moves forward: a change of the time of day must not change a time-out.
struct Clock : std::chrono::steady_clock {
    static time_point now();
};
using TimePoint = Clock::time_point;

/// The system's clock and sleep. Tests replace them.
struct ClockCalls {
    TimePoint (*now)();
    void (*sleep)(std::uint32_t microseconds);
};
extern const ClockCalls systemClockCalls;
void setClockCalls(const ClockCalls& calls);

/// A time in seconds.
[[nodiscard]] double secondsOf(Clock::duration time);

/// Sleeps for the given number of microseconds.
void localSleep(std::uint32_t microseconds);

/// Does nothing: there is only one way of sleeping. For old command lines.
void useInternalSleepAlgorithm();

/// Time-out of a target's answer in ms; 0 or less means no limit. Default 5000.
[[nodiscard]] std::int32_t getTimeoutms();
void setTimeoutms(std::int32_t milliseconds);

/// Time-out of an erase in ms; 0 or less means no limit. Default -1.
[[nodiscard]] std::int32_t getEraseTimeoutms();
void setEraseTimeoutms(std::int32_t milliseconds);

/// Seconds between progress dots while an answer is awaited, 0 for none. The setter returns the previous
/// value.
[[nodiscard]] std::int32_t getReadlineEchoPeriod();
std::int32_t setReadlineEchoPeriod(std::int32_t seconds);

/// Delay in µs before each command line, 0 for none.
[[nodiscard]] std::uint32_t getAutoDelay();
void setAutoDelay(std::uint32_t microseconds);

// Lower-level functions.

/// result = x - y, normalised; `y` may be modified. Returns 1 when x is earlier than y, else 0.
int timeval_subtract(timeval& result, const timeval& x, timeval& y);

} // namespace secapp
