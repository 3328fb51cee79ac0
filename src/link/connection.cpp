#include "link/connection.h"

#include "link/serial.h"
#include "link/timing.h"
#include "link/wire.h"
#include "support/echo.h"
#include "support/numbers.h"

#include <cerrno>
#include <cstdlib>
#include <ctime>

namespace secapp {
namespace {

constexpr auto synchronisationFailed = static_cast<std::int32_t>(0xDEADBEEF);
constexpr int noDeviceName = -2;
constexpr int attempts = 10;
constexpr int returnsPerAttempt = 10;

/// In ms; the whole seconds of the line reader make it about one second of silence.
constexpr int answerTimeout = 1;

/// For how many ms a port that takes no bytes is waited for during the handshake.
constexpr int handshakePatience = 1000;

/// A silent target is given up after about 91 s; one that never stops talking after this many.
constexpr time_t handshakeSeconds = 100;

/// For how many s stale input is drained; a target that talks on is left to the handshake.
constexpr time_t drainSeconds = 1;

timeval secondsFromNow(time_t seconds) {
    timeval time = currentTime();
    time.tv_sec += seconds;
    return time;
}

int drawToken() {
    const int token = std::rand();
    return token != 0 ? token : std::rand();
}

bool holdsToken(std::string_view response, int token) {
    while (const std::optional<std::string_view> line = nextPiece(response, "\r\n")) {
        std::uint32_t value = 0;
        decodeFull(trimwhitespace(*line), value, false);
        if (value == static_cast<std::uint32_t>(token))
            return true;
    }
    return false;
}

/// How an attempt ends: in control of the target, worth another attempt, or with the failure's text.
enum class Outcome { inControl, again, failed };

struct Handshake {
    /// A record of its own without an output handler, so that nothing of the handshake is shown as output.
    HandlerData work;
    timeval until;
    ErrorText pending;
};

/// Reads answers to the test until one holds the token, nothing is collected, or one fails and becomes the
/// pending error.
Outcome awaitToken(Handshake& handshake, int token, bool last) {
    std::size_t searched = 0;
    for (;;) {
        handshake.pending = collectAnswer(handshake.work, answerTimeout, handshake.until);
        if (handshake.pending)
            return Outcome::again;
        if (handshake.work.response.empty()) {
            if (!last)
                return Outcome::again;
            handshake.pending = "Unable to get control of target";
            return Outcome::failed;
        }
        if (holdsToken(std::string_view(handshake.work.response).substr(searched), token))
            return Outcome::inControl;
        searched = handshake.work.response.size();
    }
}

/// Sends RETURNs, which end a half-typed line on the target's side, until one is answered well or cannot be
/// written.
void sendReturns(Handshake& handshake) {
    for (int sent = 0; sent < returnsPerAttempt; ++sent) {
        if (sendLine(handshake.work, "\r", handshakePatience) <= 0)
            return;
        handshake.pending = collectAnswer(handshake.work, answerTimeout, handshake.until);
        if (!handshake.pending)
            return;
    }
}

Outcome attemptControl(Handshake& handshake, bool last) {
    const int token = drawToken();
    const std::string line = composeLine(handshake.work, formatText("print %d", token), "=", "\r");
    if (sendLine(handshake.work, line, handshakePatience) <= 0) {
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
    if (record.deviceName == nullptr) {
        writeText(stderr, "Unable to open target device: No device name provided\n");
        return noDeviceName;
    }
    if (record.linkError != 0) {
        writeText(stderr, "Previous error(s) stops further processing\n");
        return record.linkError;
    }
    debug_print("Opening %s", record.deviceName);
    record.serialHandle =
        serial_init(record.deviceName, record.savedSettings, static_cast<int>(getDefaultSerialReadTimeout()),
                    static_cast<int>(getDefaultSerialReadMinRead()));
    flush(record);
    if (const ErrorText error = getControl(record)) {
        const int number = errno;
        writeText(stderr, formatText("Error opening %s: %s\n", record.deviceName, error->c_str()));
        writeText(stderr, "(Sometimes ISP reset, or erasing the flash, can help...)\n");
        errno = number;
        return -1;
    }
    return 0;
}

ErrorText getControl(HandlerData& record) {
    Handshake handshake{.work = newHandlerData(record, record.echoFlags),
                        .until = secondsFromNow(handshakeSeconds),
                        .pending = std::nullopt};
    std::srand(static_cast<unsigned>(std::time(nullptr)));
    debug_print("Attempting to gain control of target");
    for (int left = attempts - 1; left >= 0; --left) {
        const Outcome outcome = attemptControl(handshake, left == 0);
        if (outcome == Outcome::inControl)
            return std::nullopt;
        if (outcome == Outcome::failed)
            break;
    }
    // The system's text for the last failure is still to be shown.
    const int number = errno;
    serial_terminate(record.serialHandle, record.savedSettings);
    errno = number;
    record.serialHandle = 0;
    record.linkError = synchronisationFailed;
    return handshake.pending;
}

void flush(const HandlerData& record) {
    const timeval start = currentTime();
    std::uint8_t byte = 0;
    while (serial_read(record.serialHandle, {&byte, 1}) > 0) {
        debug_print("Flush: <%c>, %d, %d", byte, 1, static_cast<signed char>(byte));
        if (elapsedSince(start).tv_sec >= drainSeconds)
            return;
    }
}

} // namespace secapp
