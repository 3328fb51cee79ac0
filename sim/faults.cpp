#include "faults.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace vqxsim {

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr std::uint64_t defaultNoiseBytes = 16;
constexpr std::uint64_t defaultFloodBytes = 8U << 20;
constexpr std::uint64_t endless = UINT64_MAX;
constexpr std::size_t floodLineLength = 62;

unsigned long long shown(std::uint64_t number) {
    return number;
}

double inSeconds(Duration time) {
    return std::chrono::duration<double>(time).count();
}

std::string& statusPart(Exchange& exchange) {
    return exchange.floodBytes > 0 ? exchange.answerAfterFlood : exchange.answer;
}

std::size_t statusStart(std::string_view answer) {
    const std::size_t before =
        answer.size() < 3 ? std::string_view::npos : answer.rfind('\n', answer.size() - 2);
    return before == std::string_view::npos ? 0 : before + 1;
}

void replaceLineEnds(std::string& text, std::string_view with) {
    std::string changed;
    std::size_t start = 0;
    for (std::size_t end = 0; (end = text.find("\r\n", start)) != std::string::npos; start = end + 2)
        changed.append(text, start, end - start).append(with);
    text = changed.append(text, start);
}

std::string strikeError(const Fault& fault, Exchange& exchange, Random&) {
    exchange.refusal = fault.status + " " + fault.text;
    return "error: " + *exchange.refusal;
}

std::string strikeHang(const Fault& fault, Exchange& exchange, Random&) {
    exchange.hang += fault.time.value_or(seconds(1));
    return formatText("hang: %.3f s", inSeconds(exchange.hang));
}

std::string strikeUnplug(const Fault& fault, Exchange& exchange, Random&) {
    exchange.unplug = true;
    exchange.replug = fault.replug;
    return "unplug: the device vanishes";
}

std::string offerWeakCell(const Fault& fault, Exchange& exchange, Random& random, std::string_view word) {
    if (exchange.word == word && !exchange.weakCell) {
        const std::uint64_t pick = random();
        WeakCell cell;
        cell.address = fault.address;
        cell.bit = static_cast<unsigned>(fault.bit.value_or(pick % 8));
        cell.pick = pick / 8;
        cell.silent = fault.silent;
        exchange.weakCell = cell;
    }
    return {};
}

std::string strikeStuckProgram(const Fault& fault, Exchange& exchange, Random& random) {
    return offerWeakCell(fault, exchange, random, "programPage");
}

std::string strikeStuckErase(const Fault& fault, Exchange& exchange, Random& random) {
    return offerWeakCell(fault, exchange, random, "eraseFlash");
}

std::string hitByte(const Fault& fault, Exchange& exchange, Random& random, ByteFault::Kind kind) {
    const std::uint64_t offset = fault.offset.value_or(random() % exchange.burstLength);
    const std::uint64_t bit = fault.bit.value_or(random() % 8);
    if (exchange.byteFault || offset >= exchange.burstLength)
        return {};
    exchange.byteFault = {kind, offset, static_cast<std::uint8_t>(1U << bit)};
    return formatText("%s: byte 0x%llx of the burst", std::string(fault.kind->name).c_str(), shown(offset));
}

std::string strikeFlip(const Fault& fault, Exchange& exchange, Random& random) {
    return hitByte(fault, exchange, random, ByteFault::Kind::flip);
}

std::string strikeLose(const Fault& fault, Exchange& exchange, Random& random) {
    return hitByte(fault, exchange, random, ByteFault::Kind::lose);
}

std::string strikeDouble(const Fault& fault, Exchange& exchange, Random& random) {
    return hitByte(fault, exchange, random, ByteFault::Kind::doubled);
}

std::string strikeDrop(const Fault&, Exchange& exchange, Random&) {
    exchange.answer.clear();
    exchange.answerAfterFlood.clear();
    exchange.floodBytes = 0;
    return "drop: no answer";
}

std::string strikeDelay(const Fault& fault, Exchange& exchange, Random&) {
    exchange.delay += fault.time.value_or(seconds(1));
    return formatText("delay: %.3f s", inSeconds(exchange.delay));
}

std::string strikeCut(const Fault& fault, Exchange& exchange, Random&) {
    const std::uint64_t kept = fault.bytes.value_or(exchange.answer.size() / 2);
    exchange.answer.resize(std::min<std::uint64_t>(kept, exchange.answer.size()));
    exchange.answerAfterFlood.clear();
    exchange.floodBytes = 0;
    return formatText("cut: %zu bytes of the answer left", exchange.answer.size());
}

std::string strikeSplit(const Fault& fault, Exchange& exchange, Random&) {
    exchange.bytePause = fault.time.value_or(milliseconds(1));
    return formatText("split: single bytes, %.6f s apart", inSeconds(*exchange.bytePause));
}

std::string strikeNoise(const Fault& fault, Exchange& exchange, Random& random) {
    const std::uint64_t count = fault.bytes.value_or(defaultNoiseBytes);
    std::string noise;
    while (noise.size() < count) {
        const char byte = static_cast<char>(random() & 0xFF);
        if (byte != '\r' && byte != '\n' && byte != '\0')
            noise += byte;
    }
    exchange.answer = noise + (fault.lines ? "\r\n" : "") + exchange.answer;
    return formatText("noise: %llu bytes", shown(count));
}

std::string strikeNoEnd(const Fault&, Exchange& exchange, Random&) {
    std::string& text = statusPart(exchange);
    if (!text.ends_with("\r\n"))
        return {};
    text.resize(text.size() - 2);
    return "noend: no line end behind the status";
}

std::string strikeEnds(const Fault& fault, Exchange& exchange, Random&) {
    const std::string_view ends = fault.with == "CR"     ? "\r"
                                  : fault.with == "CRLF" ? "\r\n"
                                  : fault.with == "NUL"  ? std::string_view("\0", 1)
                                                         : "\n";
    replaceLineEnds(exchange.answer, ends);
    replaceLineEnds(exchange.answerAfterFlood, ends);
    return "ends: " + fault.with;
}

std::string strikeFlood(const Fault& fault, Exchange& exchange, Random&) {
    exchange.floodBytes = fault.bytes.value_or(defaultFloodBytes);
    exchange.floodText.clear();
    while (exchange.floodText.size() < 0x1000)
        exchange.floodText.append(floodLineLength, 'f').append(fault.lines ? "\r\n" : "ff");
    const std::size_t status = statusStart(exchange.answer);
    exchange.answerAfterFlood = "\r\n" + exchange.answer.substr(status); // the flood may end within a line
    exchange.answer.resize(status);
    return exchange.floodBytes == endless ? "flood: endless"
                                          : formatText("flood: %llu bytes", shown(exchange.floodBytes));
}

constexpr auto kinds = std::to_array<FaultKind>({
    {"error", "text status", "an error status instead of carrying the request out", FaultPhase::request,
     strikeError},
    {"hang", "s", "the target does nothing for s seconds, then carries on", FaultPhase::request, strikeHang},
    {"unplug", "byte replug",
     "the device vanishes once the Nth byte was received, or before an answer; with --link it comes back after replug seconds, its memory kept",
     FaultPhase::request, strikeUnplug},
    {"stuckprogram", "addr bit silent",
     "a bit does not program, at an address or any; silent=1: the firmware does not notice",
     FaultPhase::request, strikeStuckProgram},
    {"stuckerase", "addr bit silent",
     "a bit does not erase, at an address or any; silent=1: the firmware does not notice",
     FaultPhase::request, strikeStuckErase},
    {"flip", "offset bit", "a bit of a burst is flipped on its way", FaultPhase::burst, strikeFlip},
    {"lose", "offset", "a byte of a burst is lost on its way", FaultPhase::burst, strikeLose},
    {"double", "offset", "a byte of a burst comes twice", FaultPhase::burst, strikeDouble},
    {"drop", "", "the answer is dropped", FaultPhase::answer, strikeDrop},
    {"delay", "ms us", "the answer comes later", FaultPhase::answer, strikeDelay},
    {"cut", "bytes", "the answer ends after so many bytes, half of it by default", FaultPhase::answer,
     strikeCut},
    {"split", "us ms", "the answer comes in single bytes with pauses", FaultPhase::answer, strikeSplit},
    {"noise", "bytes lines", "random bytes come before the answer; lines=0: on its first line",
     FaultPhase::answer, strikeNoise},
    {"noend", "", "the status line has no line end", FaultPhase::answer, strikeNoEnd},
    {"ends", "with", "lines end with CR, LF, CRLF or NUL", FaultPhase::answer, strikeEnds},
    {"flood", "bytes lines",
     "so many bytes of lines come before the status; bytes=endless: until the host goes; lines=0: no line ends",
     FaultPhase::answer, strikeFlood},
});

ErrorText badValue(std::string_view setting) {
    return "bad value in '" + printable(setting, 64) + "'";
}

bool readNumberInto(std::string_view value, std::uint64_t limit, std::optional<std::uint64_t>& number) {
    number = parseNumber(value);
    return number && *number <= limit;
}

bool readTime(std::string_view value, Duration unit, std::optional<Duration>& time) {
    double number = 0;
    const auto [stop, error] = std::from_chars(value.data(), value.data() + value.size(), number);
    if (error != std::errc() || stop != value.data() + value.size() || !(number >= 0 && number <= 1e9))
        return false;
    time = Duration(static_cast<Duration::rep>(number * static_cast<double>(unit.count())));
    return true;
}

bool readFlag(std::string_view value, bool& flag) {
    flag = value == "1";
    return value == "0" || value == "1";
}

bool readChance(std::string_view value, double& chance) {
    const auto [stop, error] = std::from_chars(value.data(), value.data() + value.size(), chance);
    return error == std::errc() && stop == value.data() + value.size() && chance >= 0 && chance <= 100;
}

bool readBytes(std::string_view value, std::optional<std::uint64_t>& bytes) {
    if (value == "endless") {
        bytes = endless;
        return true;
    }
    return readNumberInto(value, 1ULL << 40, bytes);
}

bool readAt(std::string_view value, std::uint64_t& at) {
    const auto number = parseNumber(value);
    at = number.value_or(0);
    return at > 0;
}

struct Setting {
    std::string_view name;
    bool (*read)(std::string_view, Fault&);
};

/// The first four belong to every kind.
constexpr auto settings = std::to_array<Setting>({
    {"at", [](std::string_view v, Fault& f) { return readAt(v, f.at); }},
    {"count", [](std::string_view v, Fault& f) { return readNumberInto(v, endless, f.count); }},
    {"chance", [](std::string_view v, Fault& f) { return readChance(v, f.chance); }},
    {"command", [](std::string_view v, Fault& f) { return !(f.command = v).empty(); }},
    {"text", [](std::string_view v, Fault& f) { return f.text = v, true; }},
    {"status", [](std::string_view v, Fault& f) { return !(f.status = v).empty(); }},
    {"with",
     [](std::string_view v, Fault& f) {
         f.with = v;
         return v == "CR" || v == "LF" || v == "CRLF" || v == "NUL";
     }},
    {"s", [](std::string_view v, Fault& f) { return readTime(v, seconds(1), f.time); }},
    {"ms", [](std::string_view v, Fault& f) { return readTime(v, milliseconds(1), f.time); }},
    {"us", [](std::string_view v, Fault& f) { return readTime(v, microseconds(1), f.time); }},
    {"replug", [](std::string_view v, Fault& f) { return readTime(v, seconds(1), f.replug); }},
    {"bytes", [](std::string_view v, Fault& f) { return readBytes(v, f.bytes); }},
    {"offset", [](std::string_view v, Fault& f) { return readNumberInto(v, endless, f.offset); }},
    {"byte", [](std::string_view v, Fault& f) { return readNumberInto(v, endless, f.byte) && *f.byte > 0; }},
    {"addr", [](std::string_view v, Fault& f) { return readNumberInto(v, endless, f.address); }},
    {"bit", [](std::string_view v, Fault& f) { return readNumberInto(v, 7, f.bit); }},
    {"lines", [](std::string_view v, Fault& f) { return readFlag(v, f.lines); }},
    {"silent", [](std::string_view v, Fault& f) { return readFlag(v, f.silent); }},
});

constexpr std::size_t commonSettings = 4;

/// Whether `word` is one of the words in `words`, which single blanks separate.
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
    return setting->read(value, fault) ? std::nullopt : badValue(text);
}

bool isDue(const Fault& fault, const Exchange& exchange, Random& random) {
    const std::uint64_t count = fault.count.value_or(fault.at > 0 ? 1 : UINT64_MAX);
    if (fault.byte || fault.struck >= count || exchange.number < fault.at ||
        (!fault.command.empty() && fault.command != exchange.word))
        return false;
    return fault.chance >= 100 || static_cast<double>(random() % 1000000) < fault.chance * 10000;
}

} // namespace

ErrorText readFault(std::string_view text, Fault& fault) {
    const std::string_view name = text.substr(0, text.find(','));
    const auto kind =
        std::find_if(kinds.begin(), kinds.end(), [=](const FaultKind& k) { return k.name == name; });
    if (kind == kinds.end())
        return "unknown fault '" + printable(name, 64) + "'";
    fault.kind = &*kind;
    std::size_t start = name.size();
    while (start < text.size()) {
        const std::size_t end = std::min(text.find(',', start + 1), text.size());
        if (ErrorText error = readSetting(text.substr(start + 1, end - start - 1), fault))
            return error;
        start = end;
    }
    return std::nullopt;
}

void strikeFaults(std::vector<Fault>& faults, FaultPhase phase, Exchange& exchange, Random& random) {
    for (Fault& fault : faults) {
        if (fault.kind->phase != phase || !isDue(fault, exchange, random))
            continue;
        const bool hadCell = exchange.weakCell.has_value();
        std::string note = fault.kind->strike(fault, exchange, random);
        if (!hadCell && exchange.weakCell)
            exchange.weakSource = &fault;
        if (!note.empty()) {
            ++fault.struck;
            exchange.notes.push_back(std::move(note));
        }
    }
}

void settleWeakCell(Exchange& exchange) {
    if (exchange.weakCell && exchange.weakCell->struck) {
        ++exchange.weakSource->struck;
        exchange.notes.push_back(std::string(exchange.weakSource->kind->name) +
                                 formatText(": 0x%08llx", shown(exchange.weakCell->address.value_or(0))));
    }
}

std::string faultHelp() {
    std::string text =
        "Faults: settings are at=N (from the Nth exchange on, once), command=WORD (only at that command; \"burst\" is the\n"
        "bytes of a burst), chance=PERCENT, count=N (at most so often), and those of the kind:\n";
    for (const FaultKind& kind : kinds) {
        std::string head(kind.name);
        if (!kind.settings.empty())
            head.append(" (").append(kind.settings).append(")");
        text += formatText("  %-31s %s\n", head.c_str(), std::string(kind.help).c_str());
    }
    return text;
}

} // namespace vqxsim
