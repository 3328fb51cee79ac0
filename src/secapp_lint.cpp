#include "build_number.h"
#include "checker/command_checks.h"
#include "checker/script_check.h"
#include "frontend/variables.h"
#include "support/file.h"
#include "support/streams.h"

#include <algorithm>
#include <cstdlib>
#include <set>

#include <getopt.h>
#include <sys/stat.h>
#include <unistd.h>

namespace secapp {
namespace {

constexpr int cleanStatus = 0;
constexpr int findingStatus = 1;
constexpr int failureStatus = 2;

constexpr const char* usageText =
    "Usage: secapp-lint [-v NAME=VALUE]... [--files] [--unattended] SCRIPT...\n"
    "Reports script lines that secapp would interpret differently from what they seem to say.\n"
    "  -v NAME=VALUE  define a script variable, as for secapp\n"
    "  --files        list the files that the scripts name instead, one path per line\n"
    "  --unattended   also report commands that wait for a user\n"
    "  -h, --help     show this help\n"
    "  --version      show the version\n"
    "Status: 0 without errors and warnings, 1 with, 2 when a script could not be read.";

constexpr int versionOption = 1;
constexpr int filesOption = 2;
constexpr int unattendedOption = 3;
constexpr option longOptions[] = {
    {"files", no_argument, nullptr, filesOption},
    {"help", no_argument, nullptr, 'h'},
    {"unattended", no_argument, nullptr, unattendedOption},
    {"version", no_argument, nullptr, versionOption},
    {},
};

struct CommandLine {
    Variables variables;
    /// The findings about the definitions of variables.
    Inspection definitions;
    bool listsFiles = false;
    bool isUnattended = false;
};

int printError(const std::string& text) {
    writeText(stderr, text + "\n");
    return failureStatus;
}

[[noreturn]] void printAndExit(std::string_view text) {
    writeText(stdout, std::string(text) + "\n");
    exitProgram(cleanStatus);
}

void addDefinition(CommandLine& commandLine, const char* argument) {
    const std::string_view definition = trimwhitespace(argument);
    const auto [name, value] = splitDefinition(definition);
    if (!value)
        std::exit(printError("variable cannot have a NULL value: " + std::string(name.value_or(""))));
    addVariable(commandLine.variables, *name, *value);
    checkDefinition(commandLine.definitions, definition);
}

CommandLine parseCommandLine(int argc, char** argv) {
    // Options may follow file names, as for secapp.
    ::unsetenv("POSIXLY_CORRECT");
    CommandLine commandLine;
    for (int letter = 0; (letter = ::getopt_long(argc, argv, "hv:", longOptions, nullptr)) != -1;) {
        if (letter == 'h')
            printAndExit(usageText);
        if (letter == versionOption)
            printAndExit("secapp-lint " SECAPP_VERSION " (Build " SECAPP_BUILD_NUMBER ")");
        if (letter == filesOption)
            commandLine.listsFiles = true;
        else if (letter == unattendedOption)
            commandLine.isUnattended = true;
        else if (letter == 'v')
            addDefinition(commandLine, optarg);
        else
            std::exit(printError(usageText));
    }
    if (optind == argc)
        std::exit(printError(usageText));
    return commandLine;
}

void printFindings(std::FILE* stream, const char* path, const std::vector<Finding>& findings) {
    for (const Finding& finding : findings)
        writeText(stream, formatText("%s:%d: %s: %s\n", path, finding.line,
                                     finding.severity == Severity::error ? "error" : "warning",
                                     finding.text.c_str()));
}

/// Whether opening the file would open a port or a terminal. Standard input is open already.
bool isDevice(const char* path) {
    struct stat status {};
    struct stat input {};
    if (::stat(path, &status) != 0 || !S_ISCHR(status.st_mode))
        return false;
    return ::fstat(STDIN_FILENO, &input) != 0 || input.st_rdev != status.st_rdev;
}

/// `listed`: the files listed for earlier scripts.
int checkFile(const char* path, const CommandLine& commandLine, std::set<std::string>& listed) {
    const File script = isDevice(path) ? nullptr : openDataFile(path);
    if (!script)
        return printError(formatText("Unable to open script file %s", path));
    const ScriptReport report = checkScript(script.get(), commandLine.variables, commandLine.isUnattended);
    if (commandLine.listsFiles) {
        for (const std::string& file : report.files)
            if (listed.insert(file).second)
                writeText(stdout, file + "\n");
        printFindings(stderr, path, report.unknownFiles);
    } else {
        printFindings(stdout, path, report.findings);
    }
    if (std::ferror(script.get()) != 0)
        return printError(formatText("Script could not be read to its end: %s", path));
    const auto& findings = commandLine.listsFiles ? report.unknownFiles : report.findings;
    return findings.empty() ? cleanStatus : findingStatus;
}

[[noreturn]] void run(int argc, char** argv) {
    const CommandLine commandLine = parseCommandLine(argc, argv);
    const std::vector<Finding>& definitions = commandLine.definitions.findings;
    printFindings(commandLine.listsFiles ? stderr : stdout, "<Command line>", definitions);
    int status = definitions.empty() ? cleanStatus : findingStatus;
    std::set<std::string> listed;
    for (int at = optind; at < argc; ++at)
        status = std::max(status, checkFile(argv[at], commandLine, listed));
    exitProgram(status);
}

} // namespace
} // namespace secapp

int main(int argc, char** argv) {
    secapp::runProgram(secapp::run, argc, argv, secapp::failureStatus);
}
