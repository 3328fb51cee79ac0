#include "faults/kinds.h"

#include <array>

namespace vqxsim {

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr std::uint64_t defaultNoiseBytes = 16;
constexpr std::uint64_t defaultFloodBytes = 8U << 20;
constexpr std::uint64_t endless = UINT64_MAX;
constexpr std::size_t floodLineLength = 62;

double inSeconds(Duration time) {
    return std::chrono::duration<double>(time).count();
}

std::string& statusPart(Exchange& exchange) {
    return exchange.floodBytes > 0 ? exchange.answerAfterFlood : exchange.answer;
}

/// Whether there is no answer to change.
bool isSilent(const Exchange& exchange) {
    return exchange.answer.empty() && exchange.floodBytes == 0;
}

std::size_t statusStart(std::string_view answer) {
    const std::size_t before =
        answer.size() < 3 ? std::string_view::npos : answer.rfind('\n', answer.size() - 2);
    return before == std::string_view::npos ? 0 : before + 1;
}

/// Returns whether the text changes.
bool replaceLineEnds(std::string& text, std::string_view with) {
    std::string changed;
    std::size_t start = 0;
    for (std::size_t end = 0; (end = text.find("\r\n", start)) != std::string::npos; start = end + 2)
        changed.append(text, start, end - start).append(with);
    changed.append(text, start);
    text.swap(changed);
    return text != changed;
}

std::string applyError(Fault& fault, Exchange& exchange, Random&) {
    if (exchange.refusal)
        return {};
    exchange.refusal = fault.status + " " + fault.text;
    return "error: " + *exchange.refusal;
}

std::string applyHang(Fault& fault, Exchange& exchange, Random&) {
    const Duration time = fault.time.value_or(seconds(1));
    if (time == Duration::zero())
        return {};
    exchange.hang += time;
    return formatText("hang: %.3f s", inSeconds(exchange.hang));
}

std::string applyUnplug(Fault& fault, Exchange& exchange, Random&) {
    exchange.unplug = true;
    exchange.replug = fault.replug;
    return "unplug: the device vanishes";
}

std::string offerStuckBit(Fault& fault, Exchange& exchange, Random& random) {
    if (exchange.stuckBit)
        return {};
    const std::uint64_t pick = random();
    StuckBit cell;
    cell.address = fault.address;
    cell.bit = static_cast<unsigned>(fault.bit.value_or(pick % 8));
    cell.pick = pick / 8;
    cell.silent = fault.silent;
    exchange.stuckBit = cell;
    exchange.stuckSource = &fault;
    return {};
}

std::string hitByte(Fault& fault, Exchange& exchange, Random& random, ByteFault::Kind kind) {
    const std::uint64_t offset = fault.offset.value_or(random() % exchange.burstLength);
    const std::uint64_t bit = fault.bit.value_or(random() % 8);
    if (exchange.byteFault || offset >= exchange.burstLength)
        return {};
    ByteFault hit{kind, offset, static_cast<std::uint8_t>(1U << bit), &fault, {}};
    hit.note =
        formatText("%s: byte 0x%llx of the burst", std::string(fault.kind->name).c_str(), shown(offset));
    exchange.byteFault = std::move(hit);
    return {};
}

std::string applyFlip(Fault& fault, Exchange& exchange, Random& random) {
    return hitByte(fault, exchange, random, ByteFault::Kind::flip);
}

std::string applyLose(Fault& fault, Exchange& exchange, Random& random) {
    return hitByte(fault, exchange, random, ByteFault::Kind::lose);
}

std::string applyDouble(Fault& fault, Exchange& exchange, Random& random) {
    return hitByte(fault, exchange, random, ByteFault::Kind::doubled);
}

std::string applyDrop(Fault&, Exchange& exchange, Random&) {
    exchange.answer.clear();
    exchange.answerAfterFlood.clear();
    exchange.floodBytes = 0;
    return "drop: no answer";
}

std::string applyDelay(Fault& fault, Exchange& exchange, Random&) {
    const Duration time = fault.time.value_or(seconds(1));
    if (isSilent(exchange) || time == Duration::zero())
        return {};
    exchange.delay += time;
    return formatText("delay: %.3f s", inSeconds(exchange.delay));
}

std::string applyCut(Fault& fault, Exchange& exchange, Random&) {
    const std::uint64_t kept = fault.bytes.value_or(exchange.answer.size() / 2);
    if (kept >= exchange.answer.size() && exchange.floodBytes == 0)
        return {};
    if (kept < exchange.answer.size())
        exchange.answer.resize(static_cast<std::size_t>(kept));
    exchange.answerAfterFlood.clear();
    exchange.floodBytes = 0;
    return formatText("cut: %zu bytes of the answer left", exchange.answer.size());
}

std::string applySplit(Fault& fault, Exchange& exchange, Random&) {
    if (isSilent(exchange))
        return {};
    exchange.bytePause = fault.time.value_or(milliseconds(1));
    return formatText("split: single bytes, %.6f s apart", inSeconds(*exchange.bytePause));
}

std::string applyNoise(Fault& fault, Exchange& exchange, Random& random) {
    const std::uint64_t count = fault.bytes.value_or(defaultNoiseBytes);
    if (count == 0 && !fault.lines)
        return {};
    std::string noise;
    while (noise.size() < count) {
        const char byte = static_cast<char>(random() & 0xFF);
        if (byte != '\r' && byte != '\n' && byte != '\0')
            noise += byte;
    }
    exchange.answer = noise + (fault.lines ? "\r\n" : "") + exchange.answer;
    return formatText("noise: %llu bytes", shown(count));
}

std::string applyNoEnd(Fault&, Exchange& exchange, Random&) {
    std::string& text = statusPart(exchange);
    if (!text.ends_with("\r\n"))
        return {};
    text.resize(text.size() - 2);
    return "noend: no line end after the status";
}

std::string applyEnds(Fault& fault, Exchange& exchange, Random&) {
    const std::string_view ends = fault.with == "CR"     ? "\r"
                                  : fault.with == "CRLF" ? "\r\n"
                                  : fault.with == "NUL"  ? std::string_view("\0", 1)
                                                         : "\n";
    const bool changed = replaceLineEnds(exchange.answer, ends);
    return replaceLineEnds(exchange.answerAfterFlood, ends) || changed ? "ends: " + fault.with : "";
}

/// Splits the answer before the status for a flood, whose text and length the caller sets.
void splitBeforeStatus(Exchange& exchange) {
    const std::size_t status = statusStart(exchange.answer);
    exchange.answerAfterFlood = "\r\n" + exchange.answer.substr(status); // the flood may end within a line
    exchange.answer.resize(status);
}

std::string applyIgnored(Fault& fault, Exchange& exchange, Random&) {
    if (exchange.floodBytes > 0)
        return {};
    exchange.floodText = fault.line == "repeat" ? "=" + exchange.word + "\r\n"
                         : fault.line == "zero" ? std::string(1, '\0')
                                                : "\r\n";
    exchange.floodBytes = fault.times ? *fault.times * exchange.floodText.size() : endless;
    exchange.floodPause = fault.time.value_or(milliseconds(500));
    splitBeforeStatus(exchange);
    return formatText("ignored: %s lines %.3f s apart, ", fault.line.c_str(),
                      inSeconds(exchange.floodPause)) +
           (fault.times ? formatText("%llu of them", shown(*fault.times)) : "endless");
}

std::string applyFlood(Fault& fault, Exchange& exchange, Random&) {
    const std::uint64_t bytes = fault.bytes.value_or(defaultFloodBytes);
    if (bytes == 0 || exchange.floodBytes > 0)
        return {};
    exchange.floodBytes = bytes;
    exchange.floodText.clear();
    while (exchange.floodText.size() < 0x1000)
        exchange.floodText.append(floodLineLength, 'f').append(fault.lines ? "\r\n" : "ff");
    splitBeforeStatus(exchange);
    return exchange.floodBytes == endless ? "flood: endless"
                                          : formatText("flood: %llu bytes", shown(exchange.floodBytes));
}

constexpr auto kinds = std::to_array<FaultKind>({
    {"error", "text status", "an error status; the request is not carried out", FaultPhase::request, "",
     applyError},
    {"hang", "s byte",
     "the target pauses for s seconds before it carries a request out, or after the Nth byte received",
     FaultPhase::request, "", applyHang},
    {"unplug", "byte replug",
     "the device vanishes before an answer, or after the Nth byte received; with --link it returns after replug seconds with its memories unchanged",
     FaultPhase::request, "", applyUnplug},
    {"stuckprogram", "addr bit silent",
     "a bit is not programmed, at an address or a random one; silent=1: the firmware reports success",
     FaultPhase::request, "programPage", offerStuckBit},
    {"stuckerase", "addr bit silent",
     "a bit is not erased, at an address or a random one; silent=1: the firmware reports success",
     FaultPhase::request, "eraseFlash", offerStuckBit},
    {"flip", "offset bit", "a bit of a burst is inverted", FaultPhase::burst, "burst", applyFlip},
    {"lose", "offset", "a byte of a burst is lost", FaultPhase::burst, "burst", applyLose},
    {"double", "offset", "a byte of a burst is duplicated", FaultPhase::burst, "burst", applyDouble},
    {"drop", "", "the answer is lost", FaultPhase::answer, "", applyDrop},
    {"delay", "ms us", "the answer is late", FaultPhase::answer, "", applyDelay},
    {"cut", "bytes", "the answer ends after N bytes, half of it by default", FaultPhase::answer, "",
     applyCut},
    {"split", "us ms", "the answer comes in single bytes with pauses", FaultPhase::answer, "", applySplit},
    {"noise", "bytes lines", "random bytes come before the answer; lines=0: on its first line",
     FaultPhase::answer, "", applyNoise},
    {"noend", "", "the status line has no line end", FaultPhase::answer, "", applyNoEnd},
    {"ends", "with", "lines end with CR, LF, CRLF or NUL", FaultPhase::answer, "", applyEnds},
    {"flood", "bytes lines",
     "N bytes of lines come before the status; bytes=endless: until the host closes the device; lines=0: no line ends",
     FaultPhase::answer, "", applyFlood},
    {"ignored", "line times ms us",
     "lines that a host ignores come before the status, times=N of them, or until the host closes the device; line=empty, repeat (of the command) or zero (bytes)",
     FaultPhase::answer, "", applyIgnored},
});

bool isDue(const Fault& fault, const Exchange& exchange, Random& random) {
    const std::uint64_t count = fault.count.value_or(fault.at > 0 ? 1 : UINT64_MAX);
    if (fault.byte || fault.occurred >= count || exchange.number < fault.at ||
        (!fault.command.empty() && fault.command != exchange.word) ||
        (!fault.kind->only.empty() && fault.kind->only != exchange.word))
        return false;
    return fault.chance == certain || random() % certain < fault.chance;
}

} // namespace

std::span<const FaultKind> faultKinds() {
    return kinds;
}

void applyFaults(std::vector<Fault>& faults, FaultPhase phase, Exchange& exchange, Random& random) {
    for (Fault& fault : faults) {
        if (fault.kind->phase != phase || !isDue(fault, exchange, random))
            continue;
        std::string note = fault.kind->apply(fault, exchange, random);
        if (!note.empty()) {
            ++fault.occurred;
            exchange.notes.push_back(std::move(note));
        }
    }
}

void recordStuckBit(Exchange& exchange) {
    if (exchange.stuckBit && exchange.stuckBit->occurred) {
        ++exchange.stuckSource->occurred;
        exchange.notes.push_back(std::string(exchange.stuckSource->kind->name) +
                                 formatText(": 0x%08llx", shown(exchange.stuckBit->address.value_or(0))));
    }
}

} // namespace vqxsim
