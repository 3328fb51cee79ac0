#include "frontend/options.h"

#include "frontend/help.h"
#include "frontend/prompt.h"
#include "frontend/variables.h"
#include "frontend/version.h"
#include "link/ports.h"
#include "link/serial.h"
#include "link/timing.h"
#include "support/echo.h"
#include "support/numbers.h"
#include "support/streams.h"
#include "support/text.h"
#include "transfer/encoders.h"
#include "transfer/staging.h"

#include <cctype>
#include <cstdlib>
#include <cstring>

#include <unistd.h>

namespace secapp {
namespace {

constexpr const char* optionLetters = "a:A:bd:e:g:hHM:m:ps:T:tv:w:xz";

constexpr int decodeFailure = 1;
constexpr int usageError = -1;
constexpr int nothingToDo = -2;
constexpr int lineTooLong = -4;

constexpr const char* exclusive =
    "The -s, -t and -x options and/or immediate commands are mutually exslusive";

struct EchoLetter {
    char letter;
    std::uint32_t bits;
};

/// The letters that add bits, in the order in which they are looked for.
constexpr EchoLetter echoLetters[] = {
    {'s', ECHO_SCRIPT},
    {'b', ECHO_BUFFER},
    {'t', ECHO_TARGET},
    {'x', ECHO_COMMAND_TIMER},
    {'r', ECHO_READ_TIMER},
    {'0', ECHO_SLEEP_TIMER},
    {'1', ECHO_SPARE_1},
    {'2', ECHO_SPARE_2},
    {'p', ECHO_PORT},
    {'e', ECHO_EXIT},
    {'N', ECHO_TARGET_DEBUG},
    {'A', ECHO_TARGET_DEBUG | ECHO_TARGET_DEBUG_A},
    {'B', ECHO_TARGET_DEBUG | ECHO_TARGET_DEBUG_B},
    {'S', ECHO_TARGET_DEBUG | ECHO_TARGET_DEBUG_S},
    {'E', ECHO_TARGET_DEBUG | ECHO_TARGET_DEBUG_E},
};

std::uint32_t numberOrExit(const char* text) {
    std::uint32_t value = 0;
    if (const ErrorText error = decode(text, value)) {
        writeText(stderr, *error + "\n");
        std::exit(decodeFailure);
    }
    return value;
}

[[noreturn]] void showUsage(const Options& options, bool advanced, int status) {
    usage(getProgramName().c_str(), advanced, status, options.deviceName);
}

void exitIfConflicting(bool conflict, char option) {
    if (!conflict)
        return;
    writeText(stderr, formatText("%s (-%c).\n", exclusive, option));
    std::exit(usageError);
}

void defineFromOption(const char* argument) {
    const auto [name, value] = splitDefinition(trimwhitespace(argument));
    if (!value) {
        writeText(stderr, formatText("variable cannot have a NULL value: %s\n",
                                     std::string(name.value_or("")).c_str()));
        std::exit(usageError);
    }
    addVariable(scriptVariables(), *name, *value);
}

void setDevice(Options& options, const char* device) {
    if (std::strlen(device) == 1)
        listSerialDevices();
    options.deviceName = device;
}

[[noreturn]] void refuseOption(const Options& options, unsigned char letter) {
    if (std::isprint(letter) != 0)
        writeText(stderr, formatText("Unknown option `-%c'.\n", letter));
    else
        writeText(stderr, formatText("Unknown option character `\\x%x'.\n", letter));
    showUsage(options, false, usageError);
}

/// The options that choose where the script comes from.
void chooseSource(Options& options, int letter) {
    if (letter == 's') {
        exitIfConflicting(options.fromTerminal, 's');
        options.scriptPath = optarg;
    } else if (letter == 't') {
        exitIfConflicting(options.scriptPath.has_value(), 't');
        options.fromTerminal = true;
    } else if (options.scriptPath || options.fromTerminal) {
        writeText(stderr, formatText("%s (-x).\n", exclusive));
        showUsage(options, false, usageError);
    }
}

/// The echo-flag word after the letters of one `-e` option; `d` also switches debug traces on.
std::uint32_t applyEchoLetters(const char* letters, std::uint32_t echoFlags) {
    const std::string_view given = letters;
    const auto has = [&](char letter) { return given.find(letter) != std::string_view::npos; };
    if (has('d')) {
        DEBUG = 1;
        echoFlags = ECHO_DEBUG;
    }
    if (has('n'))
        echoFlags |= ECHO_NOISY;
    if (has('q'))
        echoFlags = 0;
    for (const EchoLetter& echo : echoLetters)
        if (has(echo.letter))
            echoFlags |= echo.bits;
    return echoFlags;
}

void applyOption(Options& options, int letter) {
    switch (letter) {
    case 'a':
        return setBufferEncodeAlgorithm(numberOrExit(optarg));
    case 'A':
        return setAutoDelay(numberOrExit(optarg));
    case 'b':
        options.batchMode = false;
        return;
    case 'd':
        return setDevice(options, optarg);
    case 'e':
        options.echoFlags = applyEchoLetters(optarg, options.echoFlags);
        return;
    case 'g':
        return setTimeoutms(static_cast<std::int32_t>(numberOrExit(optarg)));
    case 'h':
    case 'H':
        showUsage(options, letter == 'H', 0);
    case 'M':
        return setDefaultSerialReadMinRead(numberOrExit(optarg));
    case 'm':
        return setMaxTransferBufferSize(numberOrExit(optarg));
    case 'p':
        return setScriptPause(1);
    case 'T':
        return setDefaultSerialReadTimeout(numberOrExit(optarg));
    case 'v':
        return defineFromOption(optarg);
    case 'w':
        return setWordsPerLine(numberOrExit(optarg));
    case 's':
    case 't':
    case 'x':
        return chooseSource(options, letter);
    case 'z':
        return useInternalSleepAlgorithm();
    default:
        refuseOption(options, static_cast<unsigned char>(optopt));
    }
}

std::string joinWords(char** words, char** end) {
    std::string line;
    for (char** word = words; word != end; ++word) {
        const std::string_view text = *word;
        if (line.size() + text.size() + 1 > textLimit) {
            writeText(stderr, formatText("Max line length exceeded (%d): '%s%s'\n",
                                         static_cast<int>(textLimit + 1), line.c_str(), *word));
            std::exit(lineTooLong);
        }
        line.append(text).append(" ");
    }
    return line;
}

} // namespace

Options parseOptions(int argc, char** argv) {
    // Options may follow words, even if the environment has `getopt` stop at the first word.
    ::unsetenv("POSIXLY_CORRECT");
    Options options;
    bool anyOption = false;
    for (int letter = 0; (letter = ::getopt(argc, argv, optionLetters)) != -1;) {
        anyOption = true;
        applyOption(options, letter);
    }
    if (optind < argc) {
        if (options.scriptPath || options.fromTerminal) {
            writeText(stderr, formatText("%s\n(script file '%s').\n", exclusive,
                                         options.scriptPath.value_or("Terminal").c_str()));
            showUsage(options, false, usageError);
        }
        options.immediateLine = joinWords(argv + optind, argv + argc);
    } else if (!anyOption) {
        showUsage(options, false, nothingToDo);
    }
    return options;
}

} // namespace secapp
