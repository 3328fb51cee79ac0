#include "port/link.h"

#include <algorithm>

namespace vqxsim {

namespace {

using std::chrono::milliseconds;

/// Bytes that a port and its driver buffer before a slow link.
constexpr std::size_t portQueue = 4096;
constexpr Duration readAhead = milliseconds(20);

constexpr std::size_t fastRead = 0x10000;

/// The latest time, so that sums never overflow.
constexpr TimePoint farthest{std::chrono::hours(24 * 365 * 200)};

TimePoint later(TimePoint time, Duration by, std::uint64_t times = 1) {
    const Duration most = farthest - time;
    const auto fit = by > Duration::zero() ? static_cast<std::uint64_t>(most / by) : times;
    return times > fit ? farthest : time + by * static_cast<Duration::rep>(times);
}

Duration transferTime(const Link& link, std::uint64_t count) {
    if (link.speed.bytesPerSecond == 0)
        return Duration::zero();
    const double seconds = static_cast<double>(count) / static_cast<double>(link.speed.bytesPerSecond);
    return Duration(static_cast<Duration::rep>(seconds * 1e9));
}

Duration aheadLimit(const Link& link) {
    return std::max(readAhead, transferTime(link, portQueue));
}

/// Queues bytes that can be sent from `start` on; they are due once they have passed the link.
void queueBytes(Link& link, Transmission transmission, TimePoint start) {
    if (transmission.total == 0 || transmission.bytes.empty())
        return;
    transmission.pause += transferTime(link, transmission.step);
    const TimePoint begin = std::max(start, link.idleFrom);
    transmission.due = later(begin, transferTime(link, transmission.step));
    const std::uint64_t steps = (transmission.total - 1) / transmission.step;
    if (transmission.total != UINT64_MAX)
        link.idleFrom = later(transmission.due, transmission.pause, steps);
    link.queue.push_back(std::move(transmission));
}

Transmission wholeText(const std::string& text, std::optional<Duration> bytePause) {
    Transmission transmission;
    transmission.bytes = text;
    transmission.total = text.size();
    transmission.step = bytePause ? 1 : text.size();
    transmission.pause = bytePause.value_or(Duration::zero());
    return transmission;
}

} // namespace

TimePoint carryBytes(Link& link, TimePoint now, std::size_t count) {
    link.idleFrom = later(std::max(now, link.idleFrom), transferTime(link, count));
    return link.idleFrom;
}

TimePoint readableFrom(const Link& link) {
    return std::max(link.idleFrom - aheadLimit(link), link.hungUntil);
}

std::size_t readLimit(const Link& link) {
    if (link.speed.bytesPerSecond == 0)
        return fastRead;
    const double perRead =
        std::chrono::duration<double>(readAhead).count() * static_cast<double>(link.speed.bytesPerSecond);
    return perRead < fastRead ? std::max(portQueue, static_cast<std::size_t>(perRead)) : fastRead;
}

void queueAnswer(Link& link, const Outcome& outcome, TimePoint arrived) {
    const Exchange& exchange = outcome.exchange;
    const TimePoint start = later(std::max(arrived, link.ready), exchange.hang);
    link.hungUntil = exchange.hang > Duration::zero() ? start : link.hungUntil;
    link.ready = later(start, outcome.busy);
    const TimePoint answered = later(link.ready, link.speed.latency + exchange.delay);
    queueBytes(link, wholeText(exchange.answer, exchange.bytePause), answered);
    if (exchange.floodBytes > 0) {
        Transmission flood;
        flood.bytes = exchange.floodText;
        flood.total = exchange.floodBytes;
        flood.step = flood.bytes.size();
        flood.pause = exchange.floodPause;
        queueBytes(link, std::move(flood), later(answered, exchange.floodPause));
        queueBytes(link, wholeText(exchange.answerAfterFlood, exchange.bytePause), answered);
    }
}

std::optional<TimePoint> nextDue(const Link& link) {
    return link.queue.empty() ? std::nullopt : std::optional(link.queue.front().due);
}

std::string_view dueBytes(const Link& link, TimePoint now) {
    if (link.queue.empty() || link.queue.front().due > now)
        return {};
    const Transmission& first = link.queue.front();
    const std::uint64_t inStep = first.step - first.sent % first.step;
    const std::uint64_t offset = first.sent % first.bytes.size();
    const std::uint64_t count = std::min({inStep, first.total - first.sent, first.bytes.size() - offset});
    return std::string_view(first.bytes)
        .substr(static_cast<std::size_t>(offset), static_cast<std::size_t>(count));
}

std::optional<Transmission> recordSent(Link& link, std::size_t count) {
    Transmission& first = link.queue.front();
    first.sent += count;
    if (first.sent % first.step == 0)
        first.due = later(first.due, first.pause);
    if (first.sent < first.total)
        return std::nullopt;
    std::optional<Transmission> complete = std::move(first);
    link.queue.pop_front();
    return complete;
}

void endEndless(Link& link) {
    for (Transmission& transmission : link.queue)
        if (transmission.total == UINT64_MAX)
            transmission.total = transmission.sent;
    if (!link.queue.empty() && link.queue.front().sent >= link.queue.front().total)
        link.queue.pop_front();
}

} // namespace vqxsim
