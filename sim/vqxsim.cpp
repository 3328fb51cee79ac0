#include "build_number.h"
#include "options.h"

#include <cstdio>
#include <exception>

namespace {

constexpr int usageStatus = 2;

int run(int argc, char** argv) {
    vqxsim::Options options;
    if (const auto error = vqxsim::readOptions(argc, argv, options)) {
        std::fprintf(stderr, "vqxsim: %s\nTry 'vqxsim --help'.\n", error->c_str());
        return usageStatus;
    }
    if (options.action == vqxsim::Action::showHelp) {
        std::fputs(vqxsim::helpText().c_str(), stdout);
        return 0;
    }
    if (options.action == vqxsim::Action::showVersion) {
        std::puts("vqxsim " SECAPP_VERSION " (Build " SECAPP_BUILD_NUMBER ")");
        return 0;
    }
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
