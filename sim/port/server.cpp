#include "port/server.h"

#include "port/child.h"
#include "port/log.h"
#include "port/pty.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace vqxsim {

namespace {

/// The state of one run of the simulator.
struct Server {
    Target target;
    Link link;
    Pty pty;
    Log log;
    Descriptor signals;
    std::string linkPath;
    std::string input = std::string(0x10000, '\0');
    TimePoint lastInput;
    bool outputBlocked = false; ///< the port accepts no bytes
    std::optional<TimePoint> replug;
    std::string replugError; ///< why the device could not be plugged in again
    int hosts = 0;
    Child child;
    bool ended = false;
    int status = 0;
    bool incomplete = false; ///< the log could not be written
};

/// Writes per turn of the loop, so that endless output does not block other events.
constexpr int writesPerTurn = 64;

/// A device that could not be plugged in again is tried again after this time.
constexpr Duration replugPause = std::chrono::milliseconds(100);

/// The log is flushed if nothing happens for this time.
constexpr Duration logTimeout = std::chrono::milliseconds(50);

sigset_t handledSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGCHLD})
        sigaddset(&set, number);
    return set;
}

ErrorText catchSignals(Server& server, sigset_t& before) {
    const sigset_t set = handledSignals();
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGCHLD, SIG_DFL); // a parent may have it ignored, which would hide the end of the command
    if (sigprocmask(SIG_BLOCK, &set, &before) != 0)
        return systemError("signals");
    server.signals = Descriptor(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
    return server.signals ? std::nullopt : systemError("signals");
}

/// The first signal is sent to the command, whose end then ends the run; a second one ends it immediately.
void handleSignals(Server& server) {
    signalfd_siginfo info{};
    while (read(server.signals.get(), &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
        const int number = static_cast<int>(info.ssi_signo);
        if (hasEnded(server.child)) {
            server.ended = true;
            server.status = server.child.exitStatus;
        }
        if (number == SIGCHLD || server.ended || sendSignal(server.child, number))
            continue;
        server.ended = true;
        server.status = server.child.id != 0 ? 128 + number : 0;
    }
}

void unplug(Server& server, std::optional<Duration> replug) {
    removeLink(server.pty, server.linkPath);
    server.pty = Pty{};
    server.link.queue.clear();
    server.link.hungUntil = TimePoint{};
    server.outputBlocked = false;
    server.hosts = 0;
    restartFirmware(server.target.firmware);
    if (replug)
        server.replug = std::chrono::steady_clock::now() + *replug;
    logLine(server.log, '#', "unplugged");
}

ErrorText plugIn(Server& server) {
    if (ErrorText error = openPty(server.pty))
        return error;
    ErrorText error = server.linkPath.empty() ? std::nullopt : makeLink(server.pty, server.linkPath);
    if (error)
        server.pty = Pty{};
    else
        logLine(server.log, '#', "plugged in as " + server.pty.path);
    return error;
}

/// Plugs the device in again; when that fails, now, it is tried again a little later.
void replug(Server& server, TimePoint now) {
    server.replug.reset();
    const ErrorText error = plugIn(server);
    if (!error)
        return;
    server.replug = now + replugPause;
    if (*error != server.replugError)
        std::fprintf(stderr, "vqxsim: cannot plug in again yet: %s\n", error->c_str());
    server.replugError = *error;
}

void answer(Server& server, const Outcome& outcome, TimePoint arrived) {
    logOutcome(server.log, outcome);
    if (outcome.exchange.unplug)
        unplug(server, outcome.exchange.replug);
    else
        queueAnswer(server.link, outcome, arrived);
}

void receiveInput(Server& server) {
    const ssize_t count = read(server.pty.target.get(), server.input.data(), readLimit(server.link));
    if (count <= 0)
        return;
    const TimePoint now = std::chrono::steady_clock::now();
    std::string_view bytes(server.input.data(), static_cast<std::size_t>(count));
    while (!bytes.empty() && server.pty.target) {
        std::optional<Outcome> outcome;
        const std::size_t taken = takeBytes(server.target, bytes, outcome);
        bytes.remove_prefix(taken);
        server.lastInput = carryBytes(server.link, now, taken);
        if (outcome)
            answer(server, *outcome, server.lastInput);
    }
}

void sendOutput(Server& server) {
    for (int i = 0; i < writesPerTurn; ++i) {
        const std::string_view bytes = dueBytes(server.link, std::chrono::steady_clock::now());
        if (bytes.empty())
            return;
        const ssize_t sent = write(server.pty.target.get(), bytes.data(), bytes.size());
        if (sent <= 0) {
            server.outputBlocked = true;
            return;
        }
        if (const auto complete = recordSent(server.link, static_cast<std::size_t>(sent)))
            logTransmission(server.log, *complete);
    }
}

void logHosts(Server& server) {
    for (const HostEvent event : takeHostEvents(server.pty)) {
        const bool opened = event == HostEvent::opened;
        logLine(server.log, '#', opened ? "opened by a host" : "closed by a host");
        server.hosts += opened ? 1 : -1;
        if (server.hosts <= 0)
            endEndless(server.link);
    }
}

/// When a silence of the host ends a request: `silenceTimeout` starts when the last answer was sent.
std::optional<TimePoint> silenceDeadline(const Server& server) {
    const auto time = silenceTimeout(server.target.firmware);
    if (!time)
        return std::nullopt;
    return std::max({server.lastInput, server.link.ready, server.link.idleFrom}) + *time;
}

void handleTimes(Server& server) {
    const TimePoint now = std::chrono::steady_clock::now();
    const auto silence = silenceDeadline(server);
    if (silence && now >= *silence)
        answer(server, takeSilence(server.target), now);
    if (server.replug && now >= *server.replug)
        replug(server, now);
}

void setEarlier(std::optional<TimePoint>& wake, std::optional<TimePoint> other) {
    if (other && (!wake || *other < *wake))
        wake = other;
}

/// The events of one turn of the loop.
struct Events {
    bool signals = false;  ///< arrived
    bool hosts = false;    ///< opened or closed the device
    bool writable = false; ///< the port accepts bytes again
    bool readable = false; ///< the port has bytes
    bool quiet = false;    ///< the log must be flushed
};

/// When the loop must go on though nothing happens, none when it need not.
std::optional<TimePoint> nextTime(const Server& server, TimePoint now) {
    std::optional<TimePoint> wake = server.replug;
    setEarlier(wake, silenceDeadline(server));
    setEarlier(wake, server.outputBlocked ? std::nullopt : nextDue(server.link));
    setEarlier(wake,
               readableFrom(server.link) <= now ? std::nullopt : std::optional(readableFrom(server.link)));
    return wake;
}

/// Waits until something happens or is due, `now` being the time.
Events waitForEvents(const Server& server, TimePoint now) {
    std::optional<TimePoint> wake = nextTime(server, now);
    const bool forLog = server.log.unflushed && (!wake || *wake > now + logTimeout);
    setEarlier(wake, forLog ? std::optional(now + logTimeout) : std::nullopt);

    const bool mayRead = readableFrom(server.link) <= now;
    std::array<pollfd, 3> waits{};
    waits[0] = {server.pty.target.get(),
                static_cast<short>((mayRead ? POLLIN : 0) | (server.outputBlocked ? POLLOUT : 0)), 0};
    waits[1] = {server.signals.get(), POLLIN, 0};
    waits[2] = {server.pty.watch.get(), POLLIN, 0};
    const auto left = wake ? std::max(*wake - now, Duration::zero()).count() : 0;
    const timespec time{static_cast<time_t>(left / 1000000000),
                        static_cast<decltype(timespec::tv_nsec)>(left % 1000000000)};
    Events events;
    if (ppoll(waits.data(), waits.size(), wake ? &time : nullptr, nullptr) <= 0) {
        events.quiet = forLog;
        return events;
    }
    events.signals = waits[1].revents != 0;
    events.hosts = waits[2].revents != 0;
    events.writable = (waits[0].revents & POLLOUT) != 0;
    events.readable = (waits[0].revents & POLLIN) != 0;
    return events;
}

void reportLog(Server& server) {
    if (const ErrorText error = flushLog(server.log)) {
        std::fprintf(stderr, "vqxsim: %s\n", error->c_str());
        server.log.file.reset();
        server.incomplete = true;
    }
}

void handleEvents(Server& server, const Events& events) {
    if (events.quiet)
        reportLog(server);
    if (events.signals)
        handleSignals(server);
    if (events.hosts)
        logHosts(server);
    if (events.writable)
        server.outputBlocked = false;
    if (events.readable)
        receiveInput(server);
}

void serveLoop(Server& server) {
    while (!server.ended) {
        handleEvents(server, waitForEvents(server, std::chrono::steady_clock::now()));
        handleTimes(server);
        sendOutput(server);
    }
    reportLog(server);
}

/// A run does not test a fault that did not occur.
void reportUnusedFaults(const Server& server) {
    for (const Fault& fault : server.target.faults)
        if (fault.occurred == 0)
            std::fprintf(stderr, "vqxsim: fault '%s' never occurred\n", printable(fault.given, 200).c_str());
}

ErrorText prepare(Server& server, const Service& service) {
    server.link.speed = service.speed;
    server.linkPath = service.link;
    server.target.faults = service.faults;
    server.target.random.seed(service.seed);
    if (ErrorText error = startFirmware(server.target.firmware, service.firmware))
        return error;
    if (!service.log.empty()) {
        if (ErrorText error = openLog(server.log, service.log))
            return error;
    }
    return plugIn(server);
}

ErrorText showDevice(const std::string& path) {
    std::puts(path.c_str());
    return std::fflush(stdout) == 0 ? std::nullopt : systemError("standard output");
}

} // namespace

ErrorText serve(const Service& service, int& status) {
    Server server;
    sigset_t mask;
    if (ErrorText error = catchSignals(server, mask))
        return error;
    ErrorText error = prepare(server, service);
    if (!error)
        error = service.command.empty() ? showDevice(server.pty.path)
                                        : startChild(server.child, service.command, server.pty.path, mask);
    if (!error) {
        prctl(PR_SET_TIMERSLACK, 1); // not before the command was started, which would inherit it
        serveLoop(server);
        reportUnusedFaults(server);
        status = server.status == 0 && server.incomplete ? 1 : server.status;
    } else {
        status = server.child.exitStatus;
    }
    removeLink(server.pty, server.linkPath);
    return error;
}

} // namespace vqxsim
