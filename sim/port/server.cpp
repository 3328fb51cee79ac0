#include "port/server.h"

#include "port/log.h"
#include "port/pty.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <poll.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vqxsim {

namespace {

/// Everything that one run of the simulator holds.
struct Server {
    Target target;
    Link link;
    Pty pty;
    Log log;
    Descriptor signals;
    std::string linkPath;
    std::string input = std::string(0x10000, '\0');
    TimePoint lastInput;
    bool outputBlocked = false; ///< the port takes no bytes
    std::optional<TimePoint> replug;
    int hosts = 0;
    pid_t child = 0; ///< 0: none
    bool stopping = false;
    bool ended = false;
    int status = 0;
};

/// Writes per turn of the loop, so that endless output leaves room for everything else.
constexpr int writesPerTurn = 64;

/// A log is made readable when nothing has happened for this long.
constexpr Duration logPatience = std::chrono::milliseconds(50);

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
    if (sigprocmask(SIG_BLOCK, &set, &before) != 0)
        return systemError("signals");
    server.signals = Descriptor(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
    return server.signals ? std::nullopt : systemError("signals");
}

ErrorText startCommand(Server& server, std::vector<std::string> command, const sigset_t& mask) {
    std::vector<char*> words;
    for (std::string& word : command) {
        const std::string& path = server.pty.path;
        for (std::size_t at = 0; (at = word.find("{}", at)) != std::string::npos; at += path.size())
            word.replace(at, 2, path);
        words.push_back(word.data());
    }
    words.push_back(nullptr);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    posix_spawnattr_setsigmask(&attributes, &mask);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    const int error = posix_spawnp(&server.child, words[0], nullptr, &attributes, words.data(), environ);
    posix_spawnattr_destroy(&attributes);
    if (error != 0) {
        server.status = error == ENOENT ? 127 : 126;
        return printable(words[0], 200) + ": " + std::strerror(error);
    }
    return std::nullopt;
}

void childEnded(Server& server) {
    int status = 0;
    if (server.child == 0 || waitpid(server.child, &status, WNOHANG) != server.child)
        return;
    server.status = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    server.ended = true;
}

/// The first signal is passed on to the command, whose end then ends the run; a second one ends it at once.
void handleSignals(Server& server) {
    signalfd_siginfo info{};
    while (read(server.signals.get(), &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
        const int number = static_cast<int>(info.ssi_signo);
        if (number == SIGCHLD) {
            childEnded(server);
        } else if (server.child != 0 && !server.stopping) {
            server.stopping = true;
            kill(server.child, number);
        } else {
            server.ended = true;
            server.status = server.child != 0 ? 128 + number : 0;
        }
    }
}

void vanish(Server& server, std::optional<Duration> replug) {
    removeLink(server.pty, server.linkPath);
    server.pty = Pty{};
    server.link.queue.clear();
    server.link.frozen = TimePoint{};
    server.outputBlocked = false;
    server.hosts = 0;
    restartFirmware(server.target.firmware);
    if (replug)
        server.replug = std::chrono::steady_clock::now() + *replug;
    noteLine(server.log, '#', "unplugged");
}

ErrorText plugIn(Server& server) {
    server.replug.reset();
    if (ErrorText error = openPty(server.pty))
        return error;
    noteLine(server.log, '#', "plugged in as " + server.pty.path);
    // Writes to the terminal, so before a link leads a host to it.
    if (isImitated(server.link))
        server.link.wakeUp = measureWakeUp(server.pty);
    return server.linkPath.empty() ? std::nullopt : makeLink(server.pty, server.linkPath);
}

void answer(Server& server, const Outcome& outcome, TimePoint arrived) {
    noteOutcome(server.log, outcome);
    if (outcome.exchange.unplug)
        vanish(server, outcome.exchange.replug);
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
        if (const auto complete =
                noteSent(server.link, static_cast<std::size_t>(sent), std::chrono::steady_clock::now()))
            noteTransmission(server.log, *complete);
    }
}

void noteHosts(Server& server) {
    for (const HostEvent event : takeHostEvents(server.pty)) {
        const bool opened = event == HostEvent::opened;
        noteLine(server.log, '#', opened ? "opened by a host" : "closed by a host");
        server.hosts += opened ? 1 : -1;
        if (server.hosts <= 0)
            endEndless(server.link);
    }
}

/// When the host's silence becomes a request: patience starts once the last answer is out.
std::optional<TimePoint> silenceDeadline(const Server& server) {
    const auto time = patience(server.target.firmware);
    if (!time)
        return std::nullopt;
    return std::max({server.lastInput, server.link.ready, server.link.free}) + *time;
}

void handleTimes(Server& server) {
    const TimePoint now = std::chrono::steady_clock::now();
    const auto silence = silenceDeadline(server);
    if (silence && now >= *silence)
        answer(server, takeSilence(server.target), now);
    if (server.replug && now >= *server.replug) {
        if (const ErrorText error = plugIn(server))
            std::fprintf(stderr, "vqxsim: %s\n", error->c_str());
    }
}

void soonest(std::optional<TimePoint>& wake, std::optional<TimePoint> other) {
    if (other && (!wake || *other < *wake))
        wake = other;
}

/// Waits until something happens or is due, `now` being the time; returns false when it only waited for the
/// log.
bool waitForEvents(Server& server, TimePoint now) {
    const bool mayRead = readableFrom(server.link) <= now;
    std::optional<TimePoint> wake = server.replug;
    soonest(wake, silenceDeadline(server));
    soonest(wake, server.outputBlocked ? std::nullopt : nextDue(server.link));
    soonest(wake, mayRead ? std::nullopt : std::optional(readableFrom(server.link)));
    const bool forLog = server.log.unflushed && (!wake || *wake > now + logPatience);
    soonest(wake, forLog ? std::optional(now + logPatience) : std::nullopt);

    std::array<pollfd, 3> waits{};
    waits[0] = {server.pty.target.get(),
                static_cast<short>((mayRead ? POLLIN : 0) | (server.outputBlocked ? POLLOUT : 0)), 0};
    waits[1] = {server.signals.get(), POLLIN, 0};
    waits[2] = {server.pty.watch.get(), POLLIN, 0};
    const auto left = wake ? std::max(*wake - now, Duration::zero()).count() : 0;
    const timespec time{static_cast<time_t>(left / 1000000000),
                        static_cast<decltype(timespec::tv_nsec)>(left % 1000000000)};
    const int events = ppoll(waits.data(), waits.size(), wake ? &time : nullptr, nullptr);
    if (events <= 0)
        return !forLog;
    if (waits[1].revents != 0)
        handleSignals(server);
    if (waits[2].revents != 0)
        noteHosts(server);
    if ((waits[0].revents & POLLOUT) != 0)
        server.outputBlocked = false;
    if ((waits[0].revents & POLLIN) != 0)
        receiveInput(server);
    return true;
}

void reportLog(Server& server) {
    if (const ErrorText error = flushLog(server.log)) {
        std::fprintf(stderr, "vqxsim: %s\n", error->c_str());
        server.log.file.reset();
    }
}

void serveLoop(Server& server) {
    while (!server.ended) {
        if (!waitForEvents(server, std::chrono::steady_clock::now()))
            reportLog(server);
        handleTimes(server);
        sendOutput(server);
    }
    reportLog(server);
}

/// A run whose faults did not happen shows nothing about them.
void nameIdleFaults(const Server& server) {
    for (const Fault& fault : server.target.faults)
        if (fault.struck == 0)
            std::fprintf(stderr, "vqxsim: fault '%s' never struck\n", printable(fault.given, 200).c_str());
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

} // namespace

ErrorText serve(const Service& service, int& status) {
    Server server;
    sigset_t mask;
    if (ErrorText error = catchSignals(server, mask))
        return error;
    ErrorText error = prepare(server, service);
    if (!error && service.command.empty()) {
        std::puts(server.pty.path.c_str());
        std::fflush(stdout);
    } else if (!error) {
        error = startCommand(server, service.command, mask);
    }
    if (!error) {
        prctl(PR_SET_TIMERSLACK, 1); // not before the command was started, which would inherit it
        serveLoop(server);
        nameIdleFaults(server);
    }
    removeLink(server.pty, server.linkPath);
    status = server.status;
    return error;
}

} // namespace vqxsim
