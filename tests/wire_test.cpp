// The link in this process, on a fake port with a fake clock: cases that a pseudo-terminal cannot produce, or
// only slowly.

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
#include "support/echo.h"

namespace {

using namespace secapp;
using namespace std::string_literals;
using std::chrono::milliseconds;
using std::chrono::seconds;

struct FakePort {
    std::string input;               ///< not yet read
    std::string endless;             ///< received after that, repeatedly, with a pause before each
    std::string output;              ///< the bytes written
    std::size_t writeLimit = 100000; ///< bytes that one write takes
    int writeError = EAGAIN;         ///< of a write that takes none; 0 for the result 0
    bool slow = false;               ///< takes one byte after each pause
    bool prints = false;             ///< answers the test of the handshake
    TimePoint now;                   ///< advances in waits and sleeps only
} fakePort;

constexpr auto shortPause = milliseconds(10);

ssize_t fakeRead(int, void* buffer, std::size_t size) {
    if (fakePort.input.empty() && !fakePort.endless.empty()) {
        fakePort.now += shortPause;
        fakePort.input = fakePort.endless;
    }
    const std::size_t count = std::min(size, fakePort.input.size());
    fakePort.input.copy(static_cast<char*>(buffer), count);
    fakePort.input.erase(0, count);
    errno = EAGAIN;
    return count > 0 ? static_cast<ssize_t>(count) : -1;
}

ssize_t fakeWrite(int, const void* bytes, std::size_t size) {
    const std::size_t count = std::min(size, fakePort.writeLimit);
    fakePort.output.append(static_cast<const char*>(bytes), count);
    if (fakePort.slow)
        fakePort.writeLimit = 0;
    if (fakePort.prints)
        fakePort.input = fakePort.output.substr(fakePort.output.rfind(' ')) + "VQX_OK\n";
    errno = fakePort.writeError;
    return count > 0 || errno == 0 ? static_cast<ssize_t>(count) : -1;
}

int fakePoll(pollfd* port, nfds_t, const timespec* limit, const sigset_t*) {
    const bool reads = port->events == POLLIN;
    const bool ready = reads ? !fakePort.input.empty() || !fakePort.endless.empty() : fakePort.slow;
    if (!ready)
        fakePort.now += seconds(limit->tv_sec) + std::chrono::nanoseconds(limit->tv_nsec);
    if (ready && !reads) {
        fakePort.now += shortPause;
        fakePort.writeLimit = 1;
    }
    port->revents = ready ? port->events : short{0};
    return ready ? 1 : 0;
}

class Wire : public testing::Test {
protected:
    Wire() {
        fakePort = {};
        setPortCalls({fakeRead, fakeWrite, fakePoll, systemPortCalls.waiting});
        setClockCalls({[] { return fakePort.now; },
                       [](std::uint32_t time) { fakePort.now += std::chrono::microseconds(time); }});
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
    constexpr std::size_t remaining = 8;
    for (const auto& [lines, fits] : std::vector<std::pair<std::string, bool>>{
             {"1234567\n", true},
             {"12345678\n", false},
             {"=234567\n", true},
             {"=2345678\n", false},
             {"\n\0\n\n\n\n\n\n"s, true},
             {"\n\0\n\n\n\n\n\n\n"s, false},
         }) {
        SCOPED_TRACE(lines);
        fakePort.input = lines + "VQX_OK\n";
        record.response.assign(responseLimit - remaining, 'y');
        const Answer answer = collectAnswer(record, 1000);
        EXPECT_EQ(answer.end, fits ? AnswerEnd::ok : AnswerEnd::lost);
        EXPECT_EQ(answer.text, fits ? "" : "Answer too long (over 67108864 bytes)");
        EXPECT_EQ(record.response.size(), responseLimit - (fits && lines.front() == '1' ? 0 : remaining));
    }
}

TEST_F(Wire, TimesOutInWholeSecondsForEachLine) {
    struct Case {
        int timeout;
        std::string received, shown;
        int seconds;
    };
    for (const Case& c : std::vector<Case>{{1, "", "\n", 1},
                                           {999, "some\nlines\n", "some\nlines\nlines\n", 1},
                                           {1000, "line\nhalf a line", "line\nhalf a line\n", 2},
                                           {5000, "\n", "\n\n", 6},
                                           {0, "line\n\n", "line\n\n\n", 3600}}) {
        SCOPED_TRACE(c.timeout);
        const TimePoint start = fakePort.now;
        fakePort.input = c.received;
        record.echoFlags = ECHO_NOISY;
        testing::internal::CaptureStdout();
        const Answer answer = collectAnswer(record, c.timeout, start + seconds(3600));
        EXPECT_EQ(testing::internal::GetCapturedStdout(), c.shown);
        EXPECT_EQ(answer.end, AnswerEnd::lost);
        EXPECT_EQ(answer.text, "Resource temporarily unavailable");
        EXPECT_EQ((fakePort.now - start) / seconds(1), c.seconds);
    }
}

TEST_F(Wire, AwaitsIgnoredLinesForTenTimeouts) {
    fakePort.input = "kept\n";
    fakePort.endless = "\n=hello\r\0"s;
    const Answer answer = collectAnswer(record, 999);
    EXPECT_EQ(answer.end, AnswerEnd::lost);
    EXPECT_EQ(answer.text, "Resource temporarily unavailable");
    EXPECT_EQ(record.response, "kept\n");
    EXPECT_EQ((fakePort.now - TimePoint()) / seconds(1), 10);
}

TEST_F(Wire, AwaitsNoAnswerAfterItsLimit) {
    for (const char* endless : {"x", "\n", "kept\n", ""}) {
        SCOPED_TRACE(endless);
        fakePort.endless = endless;
        const TimePoint until = fakePort.now + 5 * shortPause;
        const Answer answer = collectAnswer(record, 5000, until);
        EXPECT_EQ(answer.end, AnswerEnd::lost);
        EXPECT_EQ(answer.text, "Resource temporarily unavailable");
        EXPECT_TRUE(fakePort.now >= until && fakePort.now < until + shortPause);
    }
}

TEST_F(Wire, ReportsThatTheHandshakeCannotWrite) {
    fakePort.writeLimit = 0;
    fakePort.writeError = EIO;
    EXPECT_EQ(getControl(record), "Failed to write synchronization test to target");
    EXPECT_EQ(serial_getError(*record.port), EIO);
    EXPECT_EQ(record.port->handle, 0);
}

TEST_F(Wire, LeavesTheUsersDelaysOutOfTheTimeOfTheHandshake) {
    fakePort.prints = true;
    setAutoDelay(101000000);
    EXPECT_EQ(getControl(record), std::nullopt);
}

TEST_F(Wire, WritesForNoLongerThanItsTimeoutInAll) {
    fakePort.writeLimit = 1;
    EXPECT_EQ(writeAll(record, bytesOf("hello"), shortPause), std::nullopt);
    EXPECT_EQ(std::exchange(fakePort.output, ""), "hello");
    fakePort.writeLimit = 0;
    EXPECT_EQ(writeAll(record, bytesOf("hello"), shortPause), "Resource temporarily unavailable");
    fakePort.slow = true;
    EXPECT_EQ(writeAll(record, bytesOf(std::string(1000, 'x')), 10 * shortPause),
              "Resource temporarily unavailable");
    EXPECT_EQ(fakePort.output, std::string(10, 'x'));
}

TEST_F(Wire, DrainsOldInput) {
    fakePort.input = "stale\nVQX_OK\n";
    flush(record);
    EXPECT_EQ(fakePort.input, "");
    fakePort.endless = "stale\n";
    flush(record);
    EXPECT_EQ((fakePort.now - TimePoint()) / seconds(1), 1);
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

TEST_F(Wire, SendsNothingAfterAnIncompleteLine) {
    for (const auto& [error, text] : {std::pair(EIO, "Input/output error"),
                                      {0, "Resource temporarily unavailable"},
                                      {EAGAIN, "Resource temporarily unavailable"}}) {
        SCOPED_TRACE(error);
        record.port->connectionError.reset();
        fakePort.writeLimit = 0;
        fakePort.writeError = error;
        EXPECT_EQ(writeRawFully(record, bytesOf("lost")), text);
        record.port->connectionError.reset();
        EXPECT_EQ(sendCommand(record, "lost"), text);
        fakePort.writeLimit = 100;
        fakePort.input = "VQX_OK\n";
        EXPECT_EQ(sendCommand(record, "next"), text);
        EXPECT_EQ(fakePort.output, "");
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
