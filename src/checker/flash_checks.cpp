#include "checker/flash_checks.h"

#include "commands/expressions.h"
#include "support/file.h"
#include "support/numbers.h"

#include <algorithm>
#include <cinttypes>

namespace secapp {
namespace {

/// None when the expression has no value. The memories are given, so that nobody is asked for them.
std::optional<std::uint64_t> valueOf(std::string_view expression, std::optional<FlashList>& memories) {
    HandlerData nobody;
    std::uint64_t value = 0;
    if (evaluateExpression(nobody, memories, expression, value))
        return std::nullopt;
    return value;
}

/// Gives every name of a memory in the expression an address of its own.
void meetMemories(std::vector<FlashRegion>& regions, std::string_view expression) {
    constexpr std::uint32_t spacing = 0x3A5B7000;
    while (const std::optional<std::string_view> atom = nextPiece(expression, "+-*/")) {
        const bool isMet = std::any_of(regions.begin(), regions.end(), [&](const FlashRegion& region) {
            return equalsIgnoringCase(region.name, *atom);
        });
        std::uint32_t number = 0;
        if (!isMet && decode(*atom, number))
            regions.push_back({.name = std::string(*atom),
                               .base = spacing * static_cast<std::uint32_t>(regions.size() + 1)});
    }
}

/// The same text for all ways to write one value.
std::string keyOf(Inspection& inspection, std::string_view expression) {
    meetMemories(inspection.memories->regions, expression);
    const std::optional<std::uint64_t> value = valueOf(expression, inspection.memories);
    return value ? formatText("%" PRIx64, *value) : std::string(expression);
}

void checkLength(Inspection& inspection, const FlashWords& words) {
    const std::string shown = quoted(words.length);
    if (isSplit(words.addresses, words.length))
        return addError(inspection, shown + " is the length: " + std::string(oneAddressWord));
    std::optional<FlashList> noMemories = FlashList{};
    const std::optional<std::uint64_t> number = valueOf(words.length, noMemories);
    if (!number)
        return;
    const auto length = static_cast<std::uint32_t>(*number);
    if (static_cast<std::int32_t>(length) <= 0)
        addError(inspection, "a length of " + shown + " transfers nothing");
    else if (length % words.width != 0)
        addError(inspection, formatText("%s bytes are no multiple of the width %u: the last %u are zero",
                                        shown.c_str(), words.width, length % words.width));
}

void checkValue(Inspection& inspection, const FlashWords& words) {
    constexpr std::uint32_t bitsPerByte = 8;
    std::uint32_t value = 0;
    if (decode(words.data, value) || openDataFile(words.data))
        addError(inspection, quoted(words.data) + " is a value, not a file: it has only hexadecimal digits");
    else if (words.width < sizeof value && value >> (bitsPerByte * words.width) != 0)
        addError(inspection, formatText("only the low %u bits of %s are used", bitsPerByte * words.width,
                                        quoted(words.data).c_str()));
    if (!words.length.empty())
        checkLength(inspection, words);
}

} // namespace

bool isSplit(std::string_view addresses, std::string_view nextWord) {
    constexpr std::string_view joints = ",*/-+";
    return joints.find(addresses.back()) != std::string_view::npos ||
           joints.find(nextWord.front()) != std::string_view::npos;
}

std::optional<FlashWords> readFlashWords(const CheckedCommand& command) {
    if (!isCommand(command, "program") && !isCommand(command, "verify"))
        return std::nullopt;
    FlashWords read;
    std::size_t at = 1;
    for (; at < command.words.size() && command.words[at].front() == '+'; ++at) {
        for (const auto& [option, width] : {std::pair{"+w1", 1U}, {"+w2", 2U}, {"+w4", 4U}}) {
            if (!equalsIgnoringCase(command.words[at], option))
                continue;
            read.widthOption = option;
            read.width = width;
        }
    }
    if (at + 1 >= command.words.size())
        return std::nullopt;
    read.data = command.words[at];
    read.isFile = !isNumeric(read.data);
    read.addresses = command.words[at + 1];
    if (!read.isFile && at + 2 < command.words.size())
        read.length = command.words[at + 2];
    return read;
}

bool namesFile(const CheckedCommand& command) {
    return isCommand(command, "program") || isCommand(command, "verify") || isCommand(command, "download");
}

std::optional<std::string> fileOf(const CheckedCommand& command) {
    if (!namesFile(command))
        return std::nullopt;
    // "download" takes one option at most.
    const bool downloads = isCommand(command, "download");
    std::size_t at = 1;
    while (at < command.words.size() && command.words[at].front() == '+' && !(downloads && at > 1))
        ++at;
    if (at >= command.words.size() || (!downloads && isNumeric(command.words[at])))
        return std::nullopt;
    return command.words[at];
}

void checkFlashData(Inspection& inspection, const CheckedCommand& command) {
    const std::optional<FlashWords> words = readFlashWords(command);
    if (!words)
        return;
    if (!words->isFile)
        checkValue(inspection, *words);
    else if (!words->widthOption.empty())
        addWarning(inspection, quoted(words->widthOption) + " has no effect: a file has no width");
}

void followVerification(Inspection& inspection, const CheckedCommand& command) {
    const std::optional<FlashWords> words = readFlashWords(command);
    if (!words)
        return;
    const bool verifies = isCommand(command, "verify");
    const bool everywhere = equalsIgnoringCase(words->addresses, "all");
    const std::string data = words->isFile ? words->data : keyOf(inspection, words->data);
    std::string_view rest = words->addresses;
    while (const std::optional<std::string_view> item = nextPiece(rest, ",")) {
        const std::string address = everywhere ? "all" : keyOf(inspection, *item);
        if (verifies)
            std::erase_if(inspection.unverified, [&](const ProgrammedData& programmed) {
                return programmed.dataKey == data && (everywhere || programmed.addressKey == address);
            });
        else
            inspection.unverified.push_back(
                {inspection.line, words->data, std::string(*item), data, address});
    }
}

void reportUnverified(Inspection& inspection) {
    for (const ProgrammedData& programmed : inspection.unverified) {
        inspection.line = programmed.line;
        addWarning(inspection,
                   "no verify of " + quoted(programmed.data) + " at " + quoted(programmed.item) + " follows");
    }
}

} // namespace secapp
