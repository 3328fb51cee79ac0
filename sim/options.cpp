#include "options.h"

#include "faults/settings.h"
#include "firmware/commands.h"
#include "flash/description.h"

#include <algorithm>
#include <array>
#include <getopt.h>

namespace vqxsim {

namespace {

using Text = std::string_view;

std::vector<RegionSpec> defaultRegions() {
    return {{"FLASH", 0x10000000, 0x80000, 512, 0x8000, 0xFF},
            {"BANKB", 0x10080000, 0x80000, 512, 0x8000, 0xFF},
            {"MORVI", 0x14000000, 0x400000, 256, 0x8000, 0xFF}};
}

/// Reads a number of at most `limit` for an option.
ErrorText readNumber(std::string_view text, std::uint64_t limit, std::uint64_t& number) {
    const auto read = parseNumber(text);
    if (!read || *read > limit)
        return formatText("'%s' is not a number from 0 to %llu", printable(text, 64).c_str(), shown(limit));
    number = *read;
    return std::nullopt;
}

constexpr std::uint64_t longestTime = 1000000000;

template <typename Time>
ErrorText readTime(std::string_view text, Time& time) {
    std::uint64_t number = 0;
    ErrorText error = readNumber(text, longestTime, number);
    time = Time(number);
    return error;
}

ErrorText readPath(std::string_view text, std::string& path) {
    path = text;
    return text.empty() ? ErrorText("the path is empty") : std::nullopt;
}

ErrorText setFlag(bool& flag) {
    flag = true;
    return std::nullopt;
}

ErrorText acceptWord(Text word, std::vector<std::string>& accepted) {
    if (word.empty() || word.front() == '=' || word.find_first_of(" \t\r\n") != Text::npos)
        return formatText("'%s' is not a command word", printable(word, 64).c_str());
    if (isCommand(word))
        return formatText("the firmware has the command '%s'", printable(word, 64).c_str());
    accepted.emplace_back(word);
    return std::nullopt;
}

ErrorText ask(Options& options, Action action) {
    options.action = action;
    return std::nullopt;
}

struct OptionRow {
    const char* name;
    const char* argument; ///< null: takes none
    const char* help;
    ErrorText (*set)(Options&, Text);
};

constexpr auto optionRows = std::to_array<OptionRow>({
    {"region", "NAME[,KEY=N...]",
     "a memory, repeatable; replaces the default three; keys: base (0), size (512K), page (512), buffer (32K), blank (0xff)",
     [](Options& o, Text text) { return readRegion(text, o.service.firmware.regions); }},
    {"no-flash", nullptr, "a target without memories", [](Options& o, Text) { return setFlag(o.noFlash); }},
    {"like", "FILE", "the memories of a board, from the output of 'secapp queryFlash' in FILE",
     [](Options& o, Text text) { return readPath(text, o.board); }},
    {"accept", "WORD", "accept this command of a special firmware, without effect; repeatable",
     [](Options& o, Text text) { return acceptWord(text, o.service.firmware.accepted); }},
    {"memory", "DIR",
     "keep each memory in DIR/NAME.bin, visible to other programs immediately, and boot bank and USB identifiers",
     [](Options& o, Text text) { return readPath(text, o.service.firmware.directory); }},
    {"null-memory", nullptr, "flash commands succeed and store nothing; bursts are checked, not stored",
     [](Options& o, Text) { return setFlag(o.service.firmware.nullMemory); }},
    {"program-time", "US", "time to program a page, in microseconds",
     [](Options& o, Text text) { return readTime(text, o.service.firmware.programTime); }},
    {"erase-time", "MS", "time to erase, in milliseconds",
     [](Options& o, Text text) { return readTime(text, o.service.firmware.eraseTime); }},
    {"rate", "BYTES", "speed of the link in bytes per second, both directions together",
     [](Options& o, Text text) { return readNumber(text, longestTime, o.service.speed.bytesPerSecond); }},
    {"latency", "US", "delay of every answer in microseconds",
     [](Options& o, Text text) { return readTime(text, o.service.speed.latency); }},
    {"log", "FILE", "write the conversation with times: > from the host, < to it, ! faults, # the port",
     [](Options& o, Text text) { return readPath(text, o.service.log); }},
    {"fault", "KIND[,KEY=V...]", "a fault, repeatable; see below",
     [](Options& o, Text text) { return readFault(text, o.service.faults.emplace_back()); }},
    {"seed", "N", "seed of everything random in the faults (1)",
     [](Options& o, Text text) { return readNumber(text, UINT64_MAX, o.service.seed); }},
    {"link", "PATH", "make PATH a symbolic link to the device while it serves",
     [](Options& o, Text text) { return readPath(text, o.service.link); }},
    {"help", nullptr, "show this text", [](Options& o, Text) { return ask(o, Action::showHelp); }},
    {"version", nullptr, "show the version", [](Options& o, Text) { return ask(o, Action::showVersion); }},
});

std::vector<option> longOptions() {
    std::vector<option> rows;
    rows.reserve(optionRows.size() + 1);
    for (const OptionRow& row : optionRows)
        rows.push_back({row.name, row.argument != nullptr ? required_argument : no_argument, nullptr, 0});
    rows.push_back({nullptr, 0, nullptr, 0});
    return rows;
}

/// Whether `word` is the option "--name", not shortened, perhaps with "=" and its argument.
bool isWholeName(Text word, Text name) {
    return word.substr(0, 2) == "--" && word.substr(2, word.find('=') - 2) == name;
}

ErrorText chooseRegions(const Options& options, std::vector<RegionSpec>& regions) {
    if (options.noFlash && !regions.empty())
        return "--no-flash and --region exclude each other";
    if (!options.board.empty() && (options.noFlash || !regions.empty()))
        return "--like excludes --region and --no-flash";
    if (!options.board.empty())
        return readBoard(options.board, regions);
    if (!options.noFlash && regions.empty())
        regions = defaultRegions();
    return checkRegions(regions);
}

} // namespace

ErrorText readOptions(int argc, char** argv, Options& options) {
    const std::vector<option> rows = longOptions();
    opterr = 0;
    optind = 0; // starts afresh, for a process that reads more than one command line
    for (;;) {
        const int given = optind > 0 ? optind : 1;
        int row = 0;
        const int result = getopt_long(argc, argv, "+:", rows.data(), &row);
        if (result == -1)
            break;
        const Text word = given < argc ? argv[given] : "";
        const bool whole = result == 0 && isWholeName(word, optionRows[static_cast<std::size_t>(row)].name);
        if (!whole) {
            const std::string shown = printable(word, 64);
            return formatText(result == ':' ? "option '%s' needs an argument" : "bad option '%s'",
                              shown.c_str());
        }
        const OptionRow& chosen = optionRows[static_cast<std::size_t>(row)];
        if (const ErrorText error = chosen.set(options, optarg != nullptr ? optarg : ""))
            return formatText("option --%s: %s", chosen.name, error->c_str());
    }
    options.service.command.assign(argv + optind, argv + argc);
    if (ErrorText error = chooseRegions(options, options.service.firmware.regions))
        return error;
    if (options.service.firmware.nullMemory && !options.service.firmware.directory.empty())
        return "--memory and --null-memory exclude each other";
    for (const Fault& fault : options.service.faults)
        if (ErrorText error = checkFault(fault, options.service.firmware))
            return error;
    const bool comesBack = std::any_of(options.service.faults.begin(), options.service.faults.end(),
                                       [](const Fault& fault) { return fault.replug.has_value(); });
    if (comesBack && options.service.link.empty())
        return "a device that is plugged in again needs --link";
    return std::nullopt;
}

std::string helpText() {
    std::string text =
        "Usage: vqxsim [options] [-- command [argument...]]\n"
        "\n"
        "Simulates a target on a pseudo-terminal. Prints the path of the device and serves until SIGINT,\n"
        "SIGTERM or SIGHUP; with a command, runs it with each {} replaced by that path and ends with its\n"
        "exit status.\n"
        "\n"
        "Options (numbers are decimal, or hexadecimal with 0x; in --region K means 1024, M 1024 K):\n";
    for (const OptionRow& row : optionRows) {
        const std::string name = formatText("--%s %s", row.name, row.argument != nullptr ? row.argument : "");
        text += helpRow(name, 29, row.help);
    }
    return text + "\n" + faultHelp();
}

} // namespace vqxsim
