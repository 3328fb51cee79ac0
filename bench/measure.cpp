// Runs a command and prints on standard error, as the last line, what it cost:
//
//     cost STATUS WALL-µs USER-µs SYSTEM-µs PEAK-KiB VOLUNTARY-SWITCHES
//
// A separate small program, because a process starts with the peak memory of the one that started it.
#include <chrono>
#include <cstdio>
#include <cstring>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

long long microseconds(const timeval& time) {
    return time.tv_sec * 1000000LL + time.tv_usec;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fputs("Usage: measure COMMAND [ARGUMENT...]\n", stderr);
        return 2;
    }
    const auto start = std::chrono::steady_clock::now();
    pid_t child = 0;
    if (const int error = posix_spawnp(&child, argv[1], nullptr, nullptr, argv + 1, environ); error != 0) {
        std::fprintf(stderr, "%s: %s\n", argv[1], std::strerror(error));
        return 127;
    }
    int status = 0;
    rusage usage{};
    if (wait4(child, &status, 0, &usage) != child) {
        std::perror("wait4");
        return 1;
    }
    const auto wall = std::chrono::steady_clock::now() - start;
    std::fprintf(stderr, "cost %d %lld %lld %lld %ld %ld\n",
                 WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status),
                 static_cast<long long>(std::chrono::duration_cast<std::chrono::microseconds>(wall).count()),
                 microseconds(usage.ru_utime), microseconds(usage.ru_stime), usage.ru_maxrss, usage.ru_nvcsw);
}
