// The link in this process, on a port that the test plays: what no pseudo-terminal does on demand, and what
// would take millions of real reads.

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <tuple>
#include <unistd.h>
#include <utility>

#include "link/connection.h"
#include "link/protocol.h"
#include "link/serial.h"
#include "link/timing.h"
#include "link/wire.h"

namespace {

using namespace secapp;
using namespace std::string_literals;
using std::chrono::milliseconds;
using std::chrono::seconds;

struct Played {
    std::string input;         ///< still to be read
    std::string endless;       ///< comes then, over and over, with a pause before each
    std::string output;        ///< what was written
    std::size_t room = 100000; ///< bytes that one write takes
    int writeError = EAGAIN;   ///< when it takes none; 0: it says that it took none
    bool slow = false;         ///< takes a single byte only after a pause, again and again
    bool prints = false;       ///< answers the handshake's test
    TimePoint now;             ///< the time, which passes in waits and sleeps alone
} played;

constexpr auto shortPause = milliseconds(10);

ssize_t playRead(int, void* buffer, std::size_t size) {
    if (played.input.empty() && !played.endless.empty()) {
        played.now += shortPause;
        played.input = played.endless;
    }
    const std::size_t count = std::min(size, played.input.size());
    played.input.copy(static_cast<char*>(buffer), count);
    played.input.erase(0, count);
    errno = EAGAIN;
    return count > 0 ? static_cast<ssize_t>(count) : -1;
}

ssize_t playWrite(int, const void* bytes, std::size_t size) {
    const std::size_t count = std::min(size, played.room);
    played.output.append(static_cast<const char*>(bytes), count);
    if (played.slow)
        played.room = 0;
    if (played.prints)
        played.input = played.output.substr(played.output.rfind(' ')) + "VQX_OK\n";
    errno = played.writeError;
    return count > 0 || errno == 0 ? static_cast<ssize_t>(count) : -1;
}

int playPoll(pollfd* port, nfds_t, const timespec* limit, const sigset_t*) {
    const bool reads = port->events == POLLIN;
    const bool ready = reads ? !played.input.empty() || !played.endless.empty() : played.slow;
    if (!ready)
        played.now += seconds(limit->tv_sec) + std::chrono::nanoseconds(limit->tv_nsec);
    if (ready && !reads) {
        played.now += shortPause;
        played.room = 1;
    }
    port->revents = ready ? port->events : short{0};
    return ready ? 1 : 0;
}

class Wire : public testing::Test {
protected:
    Wire() {
        played = {};
        setPortCalls({playRead, playWrite, playPoll, systemPortCalls.waiting});
        setClockCalls({[] { return played.now; },
                       [](std::uint32_t time) { played.now += std::chrono::microseconds(time); }});
        record.port->handle = 1000;
    }
    ~Wire() override {
        setPortCalls(systemPortCalls);
        setClockCalls(systemClockCalls);
        setAutoDelay(0);
    }

    HandlerData record;
};

TEST_F(Wire, RefusesAnAnswerBeyondItsLimit) {
    constexpr std::size_t room = 8;
    for (const auto& [lines, fits] : std::vector<std::pair<std::string, bool>>{
             {"1234567\n", true},
             {"12345678\n", false},
             {"=234567\n", true},
             {"=2345678\n", false},
             {"\n\0\n\n\n\n\n\n"s, true},
             {"\n\0\n\n\n\n\n\n\n"s, false},
         }) {
        SCOPED_TRACE(lines);
        played.input = lines + "VQX_OK\n";
        record.response.assign(responseLimit - room, 'y');
        const Answer answer = collectAnswer(record, 1000);
        EXPECT_EQ(answer.end, fits ? AnswerEnd::ok : AnswerEnd::lost);
        EXPECT_EQ(answer.text, fits ? "" : "Answer too long (over 67108864 bytes)");
        EXPECT_EQ(record.response.size(), responseLimit - (fits && lines.front() == '1' ? 0 : room));
    }
}

TEST_F(Wire, AwaitsLinesThatDoNotCountForTenTimeouts) {
    played.input = "kept\n";
    played.endless = "\n=hello\r\0"s;
    const Answer answer = collectAnswer(record, 999);
    EXPECT_EQ(answer.end, AnswerEnd::lost);
    EXPECT_EQ(answer.text, "Resource temporarily unavailable");
    EXPECT_EQ(record.response, "kept\n");
    EXPECT_EQ((played.now - TimePoint()) / seconds(1), 10);
}

TEST_F(Wire, AwaitsNoAnswerBeyondTheTimeThatItIsGiven) {
    for (const char* endless : {"x", "\n", "kept\n", ""}) {
        SCOPED_TRACE(endless);
        played.endless = endless;
        const TimePoint until = played.now + 5 * shortPause;
        const Answer answer = collectAnswer(record, 5000, until);
        EXPECT_EQ(answer.end, AnswerEnd::lost);
        EXPECT_EQ(answer.text, "Resource temporarily unavailable");
        EXPECT_TRUE(played.now >= until && played.now < until + shortPause);
    }
}

TEST_F(Wire, SaysThatNothingCanBeWrittenWhileItGainsControl) {
    played.room = 0;
    played.writeError = EIO;
    EXPECT_EQ(getControl(record), "Failed to write synchronization test to target");
    EXPECT_EQ(serial_getError(*record.port), EIO);
    EXPECT_EQ(record.port->handle, 0);
}

TEST_F(Wire, LeavesTheUsersDelaysOutOfTheTimeOfTheHandshake) {
    played.prints = true;
    setAutoDelay(101000000);
    EXPECT_EQ(getControl(record), std::nullopt);
}

TEST_F(Wire, WritesToAPortThatTakesSingleBytes) {
    played.room = 1;
    EXPECT_EQ(writeAll(record, bytesOf("hello"), seconds(1)), std::nullopt);
    EXPECT_EQ(played.output, "hello");
}

TEST_F(Wire, WritesForNoLongerThanItsPatienceInAll) {
    played.room = 0;
    EXPECT_EQ(writeAll(record, bytesOf("hello"), shortPause), "Resource temporarily unavailable");
    played.slow = true;
    EXPECT_EQ(writeAll(record, bytesOf(std::string(1000, 'x')), 10 * shortPause),
              "Resource temporarily unavailable");
    EXPECT_EQ(played.output, std::string(10, 'x'));
}

TEST_F(Wire, DrainsAllThatIsStale) {
    played.input = "stale\nVQX_OK\n";
    flush(record);
    EXPECT_EQ(played.input, "");
}

TEST(Timing, SubtractsTimes) {
    for (auto [later, earlier, difference, isNegative] :
         std::vector<std::tuple<timeval, timeval, timeval, int>>{
             {{5, 700000}, {3, 200000}, {2, 500000}, 0},
             {{5, 200000}, {3, 700000}, {1, 500000}, 0},
             {{5, 0}, {1, 2500000}, {1, 500000}, 0},
             {{5, 2500000}, {1, 0}, {6, 500000}, 0},
             {{1, 0}, {3, 0}, {-2, 0}, 1},
         }) {
        timeval result{};
        EXPECT_EQ(timeval_subtract(result, later, earlier), isNegative);
        EXPECT_EQ(std::pair(result.tv_sec, result.tv_usec), std::pair(difference.tv_sec, difference.tv_usec));
    }
}

TEST_F(Wire, SendsNothingBehindALineThatDidNotGoOut) {
    for (const auto& [error, text] :
         {std::pair(EIO, "Input/output error"), {0, "Resource temporarily unavailable"}}) {
        SCOPED_TRACE(text);
        record.port->connectionError.reset();
        played.room = 0;
        played.writeError = error;
        EXPECT_EQ(sendCommand(record, "lost"), text);
        played.room = 100;
        played.input = "VQX_OK\n";
        EXPECT_EQ(sendCommand(record, "next"), text);
        EXPECT_EQ(played.output, "");
    }
}

/// An open port on a pseudo-terminal.
struct OpenPort {
    OpenPort() {
        EXPECT_TRUE(grantpt(target) == 0 && unlockpt(target) == 0);
        record.port->deviceName = ptsname(target);
        serial_init(*record.port, 0, 1);
    }
    ~OpenPort() { unplug(); }
    void unplug() { close(std::exchange(target, -1)); }

    int target = posix_openpt(O_RDWR | O_NOCTTY);
    HandlerData record;
};

TEST(Port, KeepsItsFailureToItself) {
    OpenPort broken;
    const OpenPort good;
    HandlerData other = newHandlerData(good.record, 0);
    broken.unplug();
    testing::internal::CaptureStderr();
    for (int i = 0; i < 2; i++) {
        EXPECT_EQ(sendCommand(broken.record, "lost"), "Input/output error");
        EXPECT_EQ(serial_write(*broken.record.port, bytesOf("lost")), -1);
        EXPECT_EQ(write(good.target, "hi\nVQX_OK\n", 10), 10);
        EXPECT_EQ(sendCommand(other, "hello"), std::nullopt);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Device " + *broken.record.port->deviceName + " is gone\n");
    EXPECT_EQ(serial_getError(*broken.record.port), EIO);
    EXPECT_NE(serial_getError(*good.record.port), EIO);
    EXPECT_EQ(other.response, "hi\nhi\n");
}

} // namespace
