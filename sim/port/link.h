#pragma once

#include "faults/target.h"

#include <deque>

namespace vqxsim {

using TimePoint = std::chrono::steady_clock::time_point;

/// The simulated link; 0: as fast as possible.
struct LinkSpeed {
    std::uint64_t bytesPerSecond = 0;     ///< shared by both directions
    std::chrono::microseconds latency{0}; ///< of every answer
};

/// Bytes that are sent to the host.
struct Transmission {
    std::string bytes;
    std::uint64_t total = 0; ///< to send, with `bytes` repeated; UINT64_MAX: endless
    std::uint64_t step = 0;  ///< sent at a time
    Duration pause{0};       ///< between two steps
    TimePoint due;           ///< of the next step
    std::uint64_t sent = 0;
};

/// The connection between host and firmware: when bytes arrive, when the firmware is ready and when answers
/// are sent. All times are absolute.
struct Link {
    LinkSpeed speed;
    TimePoint idleFrom;  ///< when all bytes so far are transferred
    TimePoint ready;     ///< when the firmware has carried out all requests so far
    TimePoint hungUntil; ///< the firmware reads no bytes before
    std::deque<Transmission> queue;
};

/// When `count` bytes that were read at `now` are transferred.
[[nodiscard]] TimePoint carryBytes(Link& link, TimePoint now, std::size_t count);

/// The time of the next read: not much earlier than the link would take bytes from a port's queue.
[[nodiscard]] TimePoint readableFrom(const Link& link);

/// How many bytes to read at most at a time.
[[nodiscard]] std::size_t readLimit(const Link& link);

/// Queues the answer of a request whose last byte arrived at `arrived`.
void queueAnswer(Link& link, const Outcome& outcome, TimePoint arrived);

/// When the next bytes are due; none if the queue is empty.
[[nodiscard]] std::optional<TimePoint> nextDue(const Link& link);

/// The bytes to send now; empty if none are due.
[[nodiscard]] std::string_view dueBytes(const Link& link, TimePoint now);

/// Records that `count` of the due bytes were sent; returns the transmission when it is complete.
[[nodiscard]] std::optional<Transmission> recordSent(Link& link, std::size_t count);

/// Ends endless transmissions.
void endEndless(Link& link);

} // namespace vqxsim
