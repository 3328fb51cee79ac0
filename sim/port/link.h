#pragma once

#include "faults/target.h"

#include <deque>

namespace vqxsim {

using TimePoint = std::chrono::steady_clock::time_point;

/// The imitated link; 0 stands for as fast as possible.
struct LinkSpeed {
    std::uint64_t bytesPerSecond = 0;     ///< shared by both directions
    std::chrono::microseconds latency{0}; ///< of every answer
};

/// Bytes on their way to the host.
struct Transmission {
    std::string bytes;
    std::uint64_t total = 0; ///< to be sent; beyond the bytes they are repeated; UINT64_MAX: for ever
    std::uint64_t step = 0;  ///< sent at a time
    Duration pause{0};       ///< between two steps
    TimePoint due;           ///< of the next step
    std::uint64_t sent = 0;
};

/// The way between host and firmware: when bytes arrive, when the firmware is ready and when answers come
/// out. All times are absolute and follow from each other.
struct Link {
    LinkSpeed speed;
    TimePoint idleFrom;  ///< when the bytes so far have passed
    TimePoint ready;     ///< when the firmware has finished what it was given
    TimePoint hungUntil; ///< the firmware takes no bytes until then
    std::deque<Transmission> queue;
};

/// When `count` bytes that were read at `now` have passed the link.
[[nodiscard]] TimePoint carryBytes(Link& link, TimePoint now, std::size_t count);

/// The time from which the next bytes may be read: not much earlier than the link would take them from a
/// port's queue.
[[nodiscard]] TimePoint readableFrom(const Link& link);

/// How many bytes to read at most at a time.
[[nodiscard]] std::size_t readLimit(const Link& link);

/// Queues the answer of a request whose last byte arrived at `arrived`.
void queueAnswer(Link& link, const Outcome& outcome, TimePoint arrived);

/// When the next bytes are due, none when the queue is empty.
[[nodiscard]] std::optional<TimePoint> nextDue(const Link& link);

/// The bytes to send now; empty when none are due.
[[nodiscard]] std::string_view dueBytes(const Link& link, TimePoint now);

/// Notes that `count` of the due bytes went out; returns the transmission when it is complete.
[[nodiscard]] std::optional<Transmission> recordSent(Link& link, std::size_t count);

/// Ends what would be sent for ever.
void endEndless(Link& link);

} // namespace vqxsim
