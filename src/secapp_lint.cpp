#include "checker/script_check.h"
#include "frontend/variables.h"
#include "support/file.h"
#include "support/streams.h"

#include <algorithm>
#include <cstdlib>

#include <unistd.h>

namespace secapp {
namespace {

constexpr int cleanStatus = 0;
constexpr int findingStatus = 1;
constexpr int failureStatus = 2;

constexpr const char* usageText = "Usage: secapp-lint [-v NAME=VALUE]... SCRIPT...\n"
                                  "Warns of what a run of secapp would read otherwise than it looks.\n"
                                  "  -v NAME=VALUE  defines a script variable, as for secapp\n"
                                  "  -h             shows this help\n"
                                  "Status: 0 without warnings, 1 with, 2 when a script could not be read.";

int complain(const std::string& text) {
    writeText(stderr, text + "\n");
    return failureStatus;
}

void defineVariable(Variables& variables, const char* argument) {
    const auto [name, value] = splitDefinition(trimwhitespace(argument));
    if (!value)
        std::exit(complain("variable cannot have a NULL value: " + std::string(name.value_or(""))));
    addVariable(variables, *name, *value);
}

/// The variables that the options define.
Variables parseOptions(int argc, char** argv) {
    Variables variables;
    for (int letter = 0; (letter = ::getopt(argc, argv, "hv:")) != -1;) {
        if (letter == 'h') {
            writeText(stdout, std::string(usageText) + "\n");
            finish(cleanStatus);
        }
        if (letter != 'v')
            std::exit(complain(usageText));
        defineVariable(variables, optarg);
    }
    if (optind == argc)
        std::exit(complain(usageText));
    return variables;
}

int checkFile(const char* path, const Variables& variables) {
    const File script = openDataFile(path);
    if (!script)
        return complain(formatText("Unable to open script file %s", path));
    const std::vector<Finding> findings = checkScript(script.get(), variables);
    for (const Finding& finding : findings)
        writeText(stdout, formatText("%s:%d: warning: %s\n", path, finding.line, finding.text.c_str()));
    if (std::ferror(script.get()) != 0)
        return complain(formatText("Script could not be read to its end: %s", path));
    return findings.empty() ? cleanStatus : findingStatus;
}

[[noreturn]] void run(int argc, char** argv) {
    const Variables variables = parseOptions(argc, argv);
    int status = cleanStatus;
    for (int at = optind; at < argc; ++at)
        status = std::max(status, checkFile(argv[at], variables));
    finish(status);
}

} // namespace
} // namespace secapp

int main(int argc, char** argv) {
    secapp::runProgram(secapp::run, argc, argv, secapp::failureStatus);
}
