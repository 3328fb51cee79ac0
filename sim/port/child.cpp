#include "port/child.h"

#include <cerrno>
#include <cstring>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vqxsim {

ErrorText startChild(Child& child, std::vector<std::string> words, const std::string& device,
                     const sigset_t& mask) {
    std::vector<char*> arguments;
    for (std::string& word : words) {
        for (std::size_t at = 0; (at = word.find("{}", at)) != std::string::npos; at += device.size())
            word.replace(at, 2, device);
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    posix_spawnattr_setsigmask(&attributes, &mask);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    const int error = posix_spawnp(&child.id, arguments[0], nullptr, &attributes, arguments.data(), environ);
    posix_spawnattr_destroy(&attributes);
    if (error == 0)
        return std::nullopt;
    child.id = 0;
    child.exitStatus = error == ENOENT ? 127 : 126;
    return printable(arguments[0], 200) + ": " + std::strerror(error);
}

bool hasEnded(Child& child) {
    int status = 0;
    if (child.id == 0 || waitpid(child.id, &status, WNOHANG) != child.id)
        return false;
    child.id = 0;
    child.exitStatus = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    return true;
}

bool sendSignal(Child& child, int signal) {
    if (child.id == 0 || child.signalSent)
        return false;
    child.signalSent = true;
    return kill(child.id, signal) == 0;
}

} // namespace vqxsim
