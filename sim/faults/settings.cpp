#include "faults/settings.h"

#include "firmware/commands.h"

#include <algorithm>
#include <array>

namespace vqxsim {

namespace {

constexpr std::uint64_t any = UINT64_MAX;
constexpr std::uint64_t longestSeconds = 1000000;
constexpr std::uint64_t mostNoise = 16U << 20; ///< bytes; the answer with them is held in memory
constexpr std::uint64_t mostFlood = 1ULL << 40;

template <typename Number>
bool readNumberInto(std::string_view value, std::uint64_t least, std::uint64_t most, Number& number) {
    const auto read = parseNumber(value);
    number = read.value_or(0);
    return read && *read >= least && *read <= most;
}

/// Reads a time in units of which a second has 10 to the power of `places`.
bool readFaultTime(std::string_view value, std::size_t places, std::optional<Duration>& time) {
    const auto nanoseconds = parseFixed(value, 9 - places);
    time = Duration(std::chrono::nanoseconds(std::min(nanoseconds.value_or(0), longestSeconds * 1000000000)));
    return nanoseconds && *nanoseconds <= longestSeconds * 1000000000;
}

bool readFlag(std::string_view value, bool& flag) {
    flag = value == "1";
    return value == "0" || value == "1";
}

bool readChance(std::string_view value, std::uint64_t& chance) {
    chance = parseFixed(value, 4).value_or(0);
    return chance > 0 && chance <= certain;
}

bool readBytes(std::string_view value, Fault& fault) {
    const bool floods = fault.kind->name == "flood";
    if (floods && value == "endless") {
        fault.bytes = UINT64_MAX;
        return true;
    }
    return readNumberInto(value, 0, floods ? mostFlood : mostNoise, fault.bytes);
}

bool readEnd(std::string_view value, std::string& with) {
    with = value;
    return value == "CR" || value == "LF" || value == "CRLF" || value == "NUL";
}

bool readLine(std::string_view value, std::string& line) {
    line = value;
    return value == "empty" || value == "repeat" || value == "zero";
}

bool readCommand(std::string_view value, Fault& fault) {
    fault.command = value;
    return fault.kind->only.empty() || fault.kind->only == value;
}

struct Setting {
    std::string_view name;
    const char* takes;
    bool (*read)(std::string_view, Fault&);
};

constexpr const char* aTime = "a time of at most 1000000 s";

/// The first four belong to every kind.
constexpr auto settings = std::to_array<Setting>({
    {"at", "a number above 0", [](std::string_view v, Fault& f) { return readNumberInto(v, 1, any, f.at); }},
    {"count", "a number above 0",
     [](std::string_view v, Fault& f) { return readNumberInto(v, 1, any, f.count); }},
    {"chance", "a percentage from 0.0001 to 100",
     [](std::string_view v, Fault& f) { return readChance(v, f.chance); }},
    {"command", "the command at which the fault can occur", readCommand},
    {"text", "a text", [](std::string_view v, Fault& f) { return f.text = v, true; }},
    {"status", "a word", [](std::string_view v, Fault& f) { return !(f.status = v).empty(); }},
    {"with", "CR, LF, CRLF or NUL", [](std::string_view v, Fault& f) { return readEnd(v, f.with); }},
    {"line", "empty, repeat or zero", [](std::string_view v, Fault& f) { return readLine(v, f.line); }},
    {"times", "a number from 1 to 1000000",
     [](std::string_view v, Fault& f) { return readNumberInto(v, 1, 1000000, f.times); }},
    {"s", aTime, [](std::string_view v, Fault& f) { return readFaultTime(v, 0, f.time); }},
    {"ms", aTime, [](std::string_view v, Fault& f) { return readFaultTime(v, 3, f.time); }},
    {"us", aTime, [](std::string_view v, Fault& f) { return readFaultTime(v, 6, f.time); }},
    {"replug", aTime, [](std::string_view v, Fault& f) { return readFaultTime(v, 0, f.replug); }},
    {"bytes", "a number of at most 16 Mi; for a flood of at most 2^40, or endless", readBytes},
    {"offset", "a number", [](std::string_view v, Fault& f) { return readNumberInto(v, 0, any, f.offset); }},
    {"byte", "a number above 0",
     [](std::string_view v, Fault& f) { return readNumberInto(v, 1, any, f.byte); }},
    {"addr", "a number", [](std::string_view v, Fault& f) { return readNumberInto(v, 0, any, f.address); }},
    {"bit", "0 to 7", [](std::string_view v, Fault& f) { return readNumberInto(v, 0, 7, f.bit); }},
    {"lines", "0 or 1", [](std::string_view v, Fault& f) { return readFlag(v, f.lines); }},
    {"silent", "0 or 1", [](std::string_view v, Fault& f) { return readFlag(v, f.silent); }},
});

constexpr std::size_t commonSettings = 4;

/// Whether `word` is one of the words in `words`, separated by single spaces.
bool holdsWord(std::string_view words, std::string_view word) {
    while (!words.empty()) {
        const std::size_t end = std::min(words.find(' '), words.size());
        if (words.substr(0, end) == word)
            return true;
        words.remove_prefix(std::min(end + 1, words.size()));
    }
    return false;
}

ErrorText readSetting(std::string_view text, Fault& fault) {
    const std::size_t sign = std::min(text.find('='), text.size());
    const std::string_view name = text.substr(0, sign);
    const auto setting =
        std::find_if(settings.begin(), settings.end(), [=](const Setting& s) { return s.name == name; });
    const bool common = setting - settings.begin() < static_cast<std::ptrdiff_t>(commonSettings);
    if (setting == settings.end() || !(common || holdsWord(fault.kind->settings, name)))
        return "fault " + std::string(fault.kind->name) + " has no setting '" + printable(name, 64) + "'";
    const std::string_view value = sign < text.size() ? text.substr(sign + 1) : std::string_view();
    if (setting->read(value, fault))
        return std::nullopt;
    return "bad value in '" + printable(text, 64) + "': it takes " + setting->takes;
}

/// The end of the setting at the start of `text`: the next comma. A setting "text" may contain commas; it
/// ends at the next comma before another setting.
std::size_t settingEnd(std::string_view text) {
    std::size_t end = text.find(',');
    while (text.starts_with("text=") && end != std::string_view::npos) {
        const std::size_t wordEnd = text.find_first_not_of("abcdefghijklmnopqrstuvwxyz", end + 1);
        if (wordEnd != std::string_view::npos && wordEnd > end + 1 && text[wordEnd] == '=')
            break;
        end = text.find(',', end + 1);
    }
    return std::min(end, text.size());
}

ErrorText impossibleFault(const Fault& fault, std::string_view why) {
    return "fault '" + printable(fault.given, 200) + "' can never occur: " + std::string(why);
}

} // namespace

ErrorText readFault(std::string_view text, Fault& fault) {
    fault.given = text;
    const std::string_view name = text.substr(0, text.find(','));
    const auto kinds = faultKinds();
    const auto kind =
        std::find_if(kinds.begin(), kinds.end(), [=](const FaultKind& k) { return k.name == name; });
    if (kind == kinds.end())
        return "unknown fault '" + printable(name, 64) + "'";
    fault.kind = &*kind;
    for (text.remove_prefix(name.size()); !text.empty();) {
        text.remove_prefix(1);
        const std::size_t end = settingEnd(text);
        if (ErrorText error = readSetting(text.substr(0, end), fault))
            return error;
        text.remove_prefix(end);
    }
    if (fault.byte && (fault.at > 0 || fault.count || fault.chance < certain || !fault.command.empty()))
        return "'byte' cannot be combined with at, count, chance or command";
    return std::nullopt;
}

ErrorText checkFault(const Fault& fault, const FirmwareConfig& firmware) {
    const std::string_view kind = fault.kind->name;
    const auto& accepted = firmware.accepted;
    if (!fault.command.empty() && fault.command != "burst" && !isCommand(fault.command) &&
        std::find(accepted.begin(), accepted.end(), fault.command) == accepted.end())
        return impossibleFault(fault, "the firmware has no such command");
    if ((kind == "hang" || kind == "delay") && fault.time == Duration::zero())
        return impossibleFault(fault, "its time is 0");
    if ((kind == "flood" && fault.bytes == 0) || (kind == "noise" && fault.bytes == 0 && !fault.lines))
        return impossibleFault(fault, "it has no bytes");
    if (kind == "ends" && fault.with == "CRLF")
        return impossibleFault(fault, "lines end with CRLF already");
    if (!holdsWord(fault.kind->settings, "addr"))
        return std::nullopt;
    if (firmware.nullMemory)
        return impossibleFault(fault, "there is no memory");
    const auto holds = [&](const RegionSpec& region) {
        return !fault.address ||
               (*fault.address >= region.base && *fault.address - region.base < region.size);
    };
    return std::any_of(firmware.regions.begin(), firmware.regions.end(), holds)
               ? std::nullopt
               : impossibleFault(fault, "no memory has this address");
}

std::string faultHelp() {
    std::string text =
        "Faults: settings are at=N (from the Nth exchange on, once), command=WORD (only at that command;\n"
        "\"burst\": the bytes of a burst), chance=PERCENT, count=N (at most N times), settings of the kind:\n";
    for (const FaultKind& kind : faultKinds()) {
        std::string head(kind.name);
        if (!kind.settings.empty())
            head.append(" (").append(kind.settings).append(")");
        text += helpRow(head, 34, kind.help);
    }
    return text;
}

} // namespace vqxsim
