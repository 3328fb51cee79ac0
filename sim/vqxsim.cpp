#include "build_number.h"
#include "options.h"

#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr int usageStatus = 2;

/// Makes the three standard streams exist, so that no file opened later is taken for one of them. The command
/// gets the closed ones as closed.
void openStandardStreams() {
    int number = 0;
    while (number >= 0 && number <= STDERR_FILENO)
        number = open("/dev/null", O_RDWR | O_CLOEXEC);
    if (number > STDERR_FILENO)
        close(number);
}

int show(const std::string& text) {
    std::fputs(text.c_str(), stdout);
    if (std::fflush(stdout) == 0)
        return 0;
    std::perror("vqxsim: standard output");
    return 1;
}

int run(int argc, char** argv) {
    openStandardStreams();
    vqxsim::Options options;
    if (const auto error = vqxsim::readOptions(argc, argv, options)) {
        std::fprintf(stderr, "vqxsim: %s\nTry 'vqxsim --help'.\n", error->c_str());
        return usageStatus;
    }
    if (options.action == vqxsim::Action::showHelp)
        return show(vqxsim::helpText());
    if (options.action == vqxsim::Action::showVersion)
        return show("vqxsim " SECAPP_VERSION " (Build " SECAPP_BUILD_NUMBER ")\n");
    int status = 0;
    if (const auto error = vqxsim::serve(options.service, status)) {
        std::fprintf(stderr, "vqxsim: %s\n", error->c_str());
        return status != 0 ? status : usageStatus;
    }
    return status;
}

} // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "vqxsim: %s\n", error.what());
        return 1;
    }
}
