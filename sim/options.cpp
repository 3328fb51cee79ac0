#include "options.h"

#include "faults/settings.h"

#include <algorithm>
#include <array>
#include <getopt.h>

namespace vqxsim {

namespace {

/// Region numbers stay below this, so that sums of them never wrap.
constexpr std::uint64_t regionNumberLimit = 0xFFFFFFFFF;

/// The sums of a host have 32 bits: no region may reach this.
constexpr std::uint64_t addressEnd = 1ULL << 32;

struct RegionKey {
    std::string_view name;
    std::uint64_t limit;
    void (*set)(RegionSpec&, std::uint64_t);
};

constexpr auto regionKeys = std::to_array<RegionKey>({
    {"base", regionNumberLimit, [](RegionSpec& spec, std::uint64_t n) { spec.base = n; }},
    {"size", regionNumberLimit, [](RegionSpec& spec, std::uint64_t n) { spec.size = n; }},
    {"page", regionNumberLimit, [](RegionSpec& spec, std::uint64_t n) { spec.page = n; }},
    {"buffer", regionNumberLimit, [](RegionSpec& spec, std::uint64_t n) { spec.buffer = n; }},
    {"blank", 0xFF, [](RegionSpec& spec, std::uint64_t n) { spec.blank = static_cast<std::uint8_t>(n); }},
});

std::vector<RegionSpec> defaultRegions() {
    return {{"FLASH", 0x10000000, 0x80000, 512, 0x8000, 0xFF},
            {"BANKB", 0x10080000, 0x80000, 512, 0x8000, 0xFF},
            {"MORVI", 0x14000000, 0x400000, 256, 0x8000, 0xFF}};
}

/// A number with an optional K or M for 1024 and 1024 * 1024.
std::optional<std::uint64_t> parseSize(std::string_view text) {
    unsigned shift = 0;
    if (text.ends_with('K') || text.ends_with('M')) {
        shift = text.back() == 'K' ? 10 : 20;
        text.remove_suffix(1);
    }
    const auto number = parseNumber(text);
    if (!number || *number > regionNumberLimit >> shift)
        return std::nullopt;
    return *number << shift;
}

std::string_view cutAt(std::string_view& text, char separator) {
    const std::size_t end = std::min(text.find(separator), text.size());
    const std::string_view piece = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return piece;
}

ErrorText setRegionKey(RegionSpec& spec, std::string_view setting) {
    std::string_view value = setting;
    const std::string_view name = cutAt(value, '=');
    const auto key = std::find_if(regionKeys.begin(), regionKeys.end(),
                                  [=](const RegionKey& k) { return k.name == name; });
    if (key == regionKeys.end()) {
        return formatText("unknown region setting '%s' (base, size, page, buffer and blank exist)",
                          printable(setting, 64).c_str());
    }
    const auto number = parseSize(value);
    if (!number || *number > key->limit)
        return formatText("bad number in region setting '%s'", printable(setting, 64).c_str());
    key->set(spec, *number);
    return std::nullopt;
}

ErrorText addRegion(Options& options, std::string_view text) {
    RegionSpec spec;
    spec.name = cutAt(text, ',');
    while (!text.empty())
        if (ErrorText error = setRegionKey(spec, cutAt(text, ',')))
            return error;
    options.service.firmware.regions.push_back(std::move(spec));
    return std::nullopt;
}

/// Fails when a region ends where no host can reach, or has bytes of another.
ErrorText checkRegions(std::vector<RegionSpec> regions) {
    std::sort(regions.begin(), regions.end(),
              [](const RegionSpec& a, const RegionSpec& b) { return a.base < b.base; });
    const RegionSpec* before = nullptr;
    for (const RegionSpec& region : regions) {
        const std::string name = printable(region.name, 64);
        if (region.base + region.size >= addressEnd)
            return formatText(
                "region '%s' ends at 0x%llx: a host, whose sums have 32 bits, reaches 0xfffffffe",
                name.c_str(), shown(region.base + region.size));
        if (before != nullptr && region.size > 0 && region.base < before->base + before->size)
            return "regions '" + printable(before->name, 64) + "' and '" + name + "' overlap";
        if (region.size > 0)
            before = &region;
    }
    return std::nullopt;
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

ErrorText ask(Options& options, Action action) {
    options.action = action;
    return std::nullopt;
}

using Text = std::string_view;

struct OptionRow {
    const char* name;
    const char* argument; ///< null: takes none
    const char* help;
    ErrorText (*set)(Options&, Text);
};

constexpr auto optionRows = std::to_array<OptionRow>({
    {"region", "NAME[,KEY=N...]",
     "a flash region, repeatable, in place of the usual three; keys: base (0), size (512K), page (512), buffer (32K), blank (0xff)",
     addRegion},
    {"no-flash", nullptr, "a target without flash regions",
     [](Options& o, Text) { return setFlag(o.noFlash); }},
    {"memory", "DIR",
     "keep each region in DIR/NAME.bin, visible to other programs at once, and boot bank and USB identifiers",
     [](Options& o, Text text) { return readPath(text, o.service.firmware.folder); }},
    {"null-memory", nullptr, "flash commands succeed without touching memory; bursts are checked, not stored",
     [](Options& o, Text) { return setFlag(o.service.firmware.nullMemory); }},
    {"program-time", "US", "programming a page takes so many microseconds",
     [](Options& o, Text text) { return readTime(text, o.service.firmware.programTime); }},
    {"erase-time", "MS", "erasing a region takes so many milliseconds",
     [](Options& o, Text text) { return readTime(text, o.service.firmware.eraseTime); }},
    {"rate", "BYTES", "a link of so many bytes per second, both directions together",
     [](Options& o, Text text) { return readNumber(text, longestTime, o.service.speed.bytesPerSecond); }},
    {"latency", "US", "every answer comes so many microseconds later",
     [](Options& o, Text text) { return readTime(text, o.service.speed.latency); }},
    {"log", "FILE", "write the conversation with times: > from the host, < to it, ! faults, # the port",
     [](Options& o, Text text) { return readPath(text, o.service.log); }},
    {"fault", "KIND[,KEY=V...]", "something that goes wrong, repeatable; see below",
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
        if (result != 0) {
            const std::string shown = printable(given < argc ? argv[given] : "", 64);
            return formatText(result == ':' ? "option '%s' needs an argument" : "bad option '%s'",
                              shown.c_str());
        }
        const OptionRow& chosen = optionRows[static_cast<std::size_t>(row)];
        if (const ErrorText error = chosen.set(options, optarg != nullptr ? optarg : ""))
            return formatText("option --%s: %s", chosen.name, error->c_str());
    }
    options.service.command.assign(argv + optind, argv + argc);
    if (options.noFlash && !options.service.firmware.regions.empty())
        return "--no-flash and --region exclude each other";
    if (!options.noFlash && options.service.firmware.regions.empty())
        options.service.firmware.regions = defaultRegions();
    if (ErrorText error = checkRegions(options.service.firmware.regions))
        return error;
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
        "Options (numbers are decimal, or hexadecimal with 0x; in regions K stands for 1024, M for 1024 K):\n";
    for (const OptionRow& row : optionRows) {
        const std::string name = formatText("--%s %s", row.name, row.argument != nullptr ? row.argument : "");
        text += helpRow(name, 29, row.help);
    }
    return text + "\n" + faultHelp();
}

} // namespace vqxsim
