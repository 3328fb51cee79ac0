#include "server.h"

#include "pty.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <poll.h>
#include <spawn.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vqxsim {

namespace {

/// Everything that one run of the simulator holds.
struct Server {
    Firmware firmware;
    Pty pty;
    Descriptor signals;
    std::string input = std::string(0x10000, '\0');
    std::string output; ///< waits for the host to take it
    pid_t child = 0;    ///< 0: none
    bool stopping = false;
    bool ended = false;
    int status = 0;
};

sigset_t handledSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGCHLD}) {
        sigaddset(&set, number);
    }
    return set;
}

Failure systemFailure(const std::string& what) {
    return what + ": " + std::strerror(errno);
}

Failure catchSignals(Server& server, sigset_t& before) {
    const sigset_t set = handledSignals();
    std::signal(SIGPIPE, SIG_IGN);
    if (sigprocmask(SIG_BLOCK, &set, &before) != 0) {
        return systemFailure("signals");
    }
    server.signals = Descriptor(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
    return server.signals ? std::nullopt : systemFailure("signals");
}

Failure startCommand(Server& server, std::vector<std::string> command, const sigset_t& mask) {
    std::vector<char*> words;
    for (std::string& word : command) {
        if (word == "{}") {
            word = server.pty.path;
        }
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
    return error == 0 ? std::nullopt : Failure(printable(words[0], 200) + ": " + std::strerror(error));
}

void childEnded(Server& server) {
    int status = 0;
    if (server.child == 0 || waitpid(server.child, &status, WNOHANG) != server.child) {
        return;
    }
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

void sendOutput(Server& server) {
    while (!server.output.empty()) {
        const ssize_t sent = write(server.pty.target.get(), server.output.data(), server.output.size());
        if (sent <= 0) {
            return;
        }
        server.output.erase(0, static_cast<std::size_t>(sent));
    }
}

void receiveInput(Server& server) {
    const ssize_t count = read(server.pty.target.get(), server.input.data(), server.input.size());
    if (count > 0) {
        server.output += converse(server.firmware, {server.input.data(), static_cast<std::size_t>(count)},
                                  std::chrono::steady_clock::now());
    }
}

void waitForEvents(Server& server) {
    pollfd waits[] = {{server.pty.target.get(), POLLIN, 0}, {server.signals.get(), POLLIN, 0}};
    if (!server.output.empty()) {
        waits[0].events |= POLLOUT;
    }
    timespec patience{};
    const auto deadline = silenceDeadline(server.firmware);
    if (deadline) {
        const auto left = std::max(*deadline - std::chrono::steady_clock::now(), Duration::zero());
        patience.tv_sec = static_cast<time_t>(left.count() / 1000000000);
        patience.tv_nsec = static_cast<long>(left.count() % 1000000000);
    }
    if (ppoll(waits, 2, deadline ? &patience : nullptr, nullptr) < 0) {
        return;
    }
    if (waits[1].revents != 0) {
        handleSignals(server);
    }
    if ((waits[0].revents & POLLIN) != 0) {
        receiveInput(server);
    }
}

void serveLoop(Server& server) {
    while (!server.ended) {
        waitForEvents(server);
        if (const auto request = endSilence(server.firmware, std::chrono::steady_clock::now())) {
            server.output += execute(server.firmware, *request).text;
        }
        sendOutput(server);
    }
}

} // namespace

Failure serve(const Options& options, int& status) {
    Server server;
    sigset_t mask;
    if (Failure failure = startFirmware(server.firmware, options.firmware)) {
        return failure;
    }
    if (Failure failure = openPty(server.pty)) {
        return failure;
    }
    if (Failure failure = catchSignals(server, mask)) {
        return failure;
    }
    if (!options.link.empty()) {
        if (Failure failure = makeLink(server.pty, options.link)) {
            return failure;
        }
    }
    Failure failure;
    if (options.command.empty()) {
        std::puts(server.pty.path.c_str());
        std::fflush(stdout);
    } else {
        failure = startCommand(server, options.command, mask);
    }
    if (!failure) {
        serveLoop(server);
    }
    if (!options.link.empty()) {
        removeLink(server.pty, options.link);
    }
    status = server.status;
    return failure;
}

} // namespace vqxsim
