#include "link/connection.h"

#include "link/port_access.h"
#include "link/serial.h"
#include "link/wire.h"
#include "support/echo.h"
#include "support/numbers.h"
#include "support/streams.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <utility>

#include <unistd.h>

namespace secapp {
namespace {

/// The `linkError` of a port whose handshake has failed.
constexpr auto handshakeFailed = static_cast<std::int32_t>(0xDEADBEEF);
constexpr int noDeviceName = -2;
constexpr int attempts = 10;
constexpr int returnsPerAttempt = 10;

/// In ms. A time-out is extended to the next whole second: an answer may take one second.
constexpr int answerTimeout = 1;

/// How long the handshake waits for a port that takes no bytes.
constexpr auto handshakeWriteTimeout = std::chrono::seconds(1);

/// The limit for a target that never stops sending; the attempts on a silent one end after about 91 s.
constexpr auto handshakeTimeLimit = std::chrono::seconds(100);

/// The limit for reading old input; the handshake ignores what the target sends later.
constexpr auto drainTimeLimit = std::chrono::seconds(1);

/// A target that has not answered for this time gets a hint on the terminal.
constexpr auto hintTime = std::chrono::seconds(3);

int drawToken() {
    const int token = std::rand();
    return token != 0 ? token : std::rand();
}

bool containsToken(std::string_view response, int token) {
    while (const std::optional<std::string_view> line = nextPiece(response, "\r\n")) {
        std::uint32_t value = 0;
        decodeFull(trimwhitespace(*line), value, false);
        if (value == static_cast<std::uint32_t>(token))
            return true;
    }
    return false;
}

/// How an attempt ends: connected, worth another attempt, or as the failure of the handshake.
enum class Outcome { connected, again, failed };

struct Handshake {
    /// A separate record without an output handler: the answers are not shown.
    HandlerData record;
    TimePoint deadline;
    /// The last failure. While there is one, the next attempt sends RETURNs.
    ErrorText pending;
    /// Whether the last failure was one of the link and not of the target.
    bool linkFailed = false;
    /// When the first line was sent.
    std::optional<TimePoint> started = std::nullopt;
    /// Whether the target has sent nothing and the user was not told yet.
    bool hintDue = true;
};

bool isPastDeadline(const Handshake& handshake) {
    return Clock::now() >= handshake.deadline;
}

/// How long the attempts on a silent target still last, in seconds: each wait for an answer takes one, and
/// each further "print" is delayed like any command.
int secondsLeft(const Handshake& handshake) {
    using std::chrono::duration_cast, std::chrono::seconds, std::chrono::microseconds;
    const auto whole =
        seconds(1 + (attempts - 1) * returnsPerAttempt) + (attempts - 1) * microseconds(getAutoDelay());
    return static_cast<int>(duration_cast<seconds>(whole - (Clock::now() - *handshake.started)).count());
}

/// Tells the user at a terminal, once, that the target is silent.
void hintAtSilence(Handshake& handshake) {
    if (!handshake.hintDue || Clock::now() - *handshake.started < hintTime)
        return;
    handshake.hintDue = false;
    if (!errorsGoToTerminal() || deviceName(handshake.record) == nullptr)
        return;
    std::string hint = formatText("No answer from the target on %s for 3 s; trying for up to %d s more",
                                  deviceName(handshake.record), secondsLeft(handshake));
    const char* separator = "; also open in ";
    for (const std::string& user : deviceUsers(handshake.record.port->handle))
        hint.append(std::exchange(separator, ", ")).append(user);
    writeText(stderr, hint + "\n");
}

bool sendHandshakeLine(Handshake& handshake, std::string_view line) {
    const Clock::duration timeout =
        std::min<Clock::duration>(handshakeWriteTimeout, handshake.deadline - Clock::now());
    handshake.started = handshake.started.value_or(Clock::now());
    handshake.linkFailed = sendLine(handshake.record, line, timeout).has_value();
    if (handshake.linkFailed)
        hintAtSilence(handshake);
    return !handshake.linkFailed;
}

/// Waits for an answer; its failure becomes the pending error. False when it fails.
bool await(Handshake& handshake) {
    Answer answer = collectAnswer(handshake.record, answerTimeout, handshake.deadline);
    handshake.linkFailed = answer.end == AnswerEnd::lost;
    handshake.hintDue = handshake.hintDue && handshake.linkFailed && handshake.record.response.empty();
    hintAtSilence(handshake);
    if (answer.end == AnswerEnd::ok)
        handshake.pending.reset();
    else
        handshake.pending = std::move(answer.text);
    return answer.end == AnswerEnd::ok;
}

/// Reads answers to "print" until one contains the token, has no lines, or fails.
Outcome awaitToken(Handshake& handshake, int token, bool last) {
    std::size_t searched = 0;
    while (await(handshake)) {
        if (handshake.record.response.empty()) {
            if (!last)
                return Outcome::again;
            handshake.pending = "Unable to get control of target";
            return Outcome::failed;
        }
        if (containsToken(std::string_view(handshake.record.response).substr(searched), token))
            return Outcome::connected;
        searched = handshake.record.response.size();
    }
    return Outcome::again;
}

/// Sends RETURNs, which end an incomplete line at the target, until one is answered with "VQX_OK" or cannot
/// be written.
void sendReturns(Handshake& handshake) {
    for (int sent = 0; sent < returnsPerAttempt && !isPastDeadline(handshake); ++sent)
        if (!sendHandshakeLine(handshake, "\r") || await(handshake))
            return;
}

Outcome attemptControl(Handshake& handshake, bool last) {
    const int token = drawToken();
    const TimePoint start = Clock::now();
    const std::string line = composeLine(handshake.record, formatText("print %d", token), "=", "\r");
    // The delay that the user set for each line does not count.
    handshake.deadline += Clock::now() - start;
    if (!sendHandshakeLine(handshake, line)) {
        handshake.pending = last ? "Failed to write synchronization test to target"
                                 : "Failed to write synchronization RETURN";
        return last ? Outcome::failed : Outcome::again;
    }
    if (!handshake.pending) {
        const Outcome outcome = awaitToken(handshake, token, last);
        if (outcome != Outcome::again || !handshake.pending)
            return outcome;
    }
    if (last)
        return Outcome::failed;
    sendReturns(handshake);
    return Outcome::again;
}

} // namespace

int openSerialDevice(HandlerData& record) {
    Port& port = *record.port;
    if (!port.deviceName) {
        port.error = ENODEV;
        writeText(stderr, "Unable to open target device: No device name provided\n");
        return noDeviceName;
    }
    if (port.linkError != 0) {
        reportEarlierFailure();
        return port.linkError;
    }
    debug_print("Opening %s", port.deviceName->c_str());
    serial_init(port, static_cast<int>(getDefaultSerialReadTimeout()),
                static_cast<int>(getDefaultSerialReadMinRead()));
    flush(record);
    if (const ErrorText error = getControl(record)) {
        writeText(stderr, formatText("Error opening %s: %s\n", port.deviceName->c_str(), error->c_str()));
        writeText(stderr, "(Sometimes ISP reset, or erasing the flash, can help...)\n");
        return -1;
    }
    return 0;
}

void reportEarlierFailure() {
    writeText(stderr, "Previous error(s) stops further processing\n");
}

ErrorText getControl(HandlerData& record) {
    Handshake handshake{.record = newHandlerData(record, record.echoFlags),
                        .deadline = Clock::now() + handshakeTimeLimit,
                        .pending = std::nullopt};
    // The process number, because a process that was killed in this second can have left an answer with its
    // token.
    std::srand(static_cast<unsigned>(std::time(nullptr)) ^ static_cast<unsigned>(::getpid()) << 16U);
    debug_print("Attempting to gain control of target");
    for (int left = attempts - 1; left >= 0; --left) {
        const Outcome outcome = attemptControl(handshake, left == 0 || isPastDeadline(handshake));
        if (outcome == Outcome::connected)
            return std::nullopt;
        if (outcome == Outcome::failed)
            break;
    }
    if (!handshake.linkFailed)
        record.port->error = EPROTO;
    serial_terminate(*record.port);
    record.port->linkError = handshakeFailed;
    return handshake.pending;
}

void flush(const HandlerData& record) {
    const TimePoint deadline = Clock::now() + drainTimeLimit;
    std::uint8_t byte = 0;
    while (serial_read(*record.port, {&byte, 1}) > 0) {
        debug_print("Flush: <%c>, %d, %d", byte, 1, static_cast<signed char>(byte));
        if (Clock::now() >= deadline)
            return;
    }
}

} // namespace secapp
