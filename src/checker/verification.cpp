#include "checker/verification.h"

#include "checker/flash_checks.h"
#include "checker/number_checks.h"

#include <cinttypes>
#include <iterator>
#include <utility>

namespace secapp {
namespace {

constexpr std::uint64_t toTheEnd = UINT64_MAX;

/// Equal for all ways to write an address.
std::string keyOf(std::string_view address) {
    const std::optional<std::uint64_t> value = comparableValue(address);
    return value ? formatText("%" PRIx64, *value) : std::string(address);
}

/// Equal for all names of a file, and for all values and widths that fill memory alike.
std::string dataKey(Inspection& inspection, const CheckedCommand& command,
                    const ProgramArguments& arguments) {
    if (arguments.isFile)
        return "file " + checkImage(inspection, command, arguments.data).key;
    const std::optional<std::uint64_t> value = numericValue(arguments.data);
    if (!value)
        return arguments.data;
    auto fill = static_cast<std::uint32_t>(*value);
    if (arguments.width == 1)
        fill = (fill & 0xFF) * 0x01010101;
    else if (arguments.width == 2)
        fill = (fill & 0xFFFF) * 0x00010001;
    return formatText("%" PRIx32, fill);
}

std::uint64_t sizeOf(const ProgramArguments& arguments) {
    if (arguments.isFile || arguments.length.empty())
        return toTheEnd;
    const std::optional<std::uint64_t> length = comparableValue(arguments.length);
    return length ? static_cast<std::uint32_t>(*length) : toTheEnd;
}

/// Reports a verify that fails because only one of both commands calculates the check word.
void compareChecksums(Inspection& inspection, const ImageFile& image, const ProgramArguments& verified,
                      const ProgrammedData& programmed) {
    const bool isCalculated = equalsIgnoringCase(verified.checksumOption, "+c");
    if (equalsIgnoringCase(verified.checksumOption, "+i") || !image.changesWithChecksum ||
        isCalculated == programmed.isChecksumCalculated)
        return;
    addError(inspection, "the check word of " + quoted(verified.data) + " differs: it was programmed " +
                             (isCalculated ? "without" : "with") + " '+c'");
}

/// Whether all programmed bytes are verified.
bool verify(Inspection& inspection, const CheckedCommand& command, const ProgramArguments& verified,
            ProgrammedData& programmed) {
    if (verified.isFile)
        compareChecksums(inspection, checkImage(inspection, command, verified.data), verified, programmed);
    programmed.isPartlyVerified = true;
    return sizeOf(verified) >= programmed.size;
}

void recordProgrammed(const Inspection& inspection, const ProgramArguments& arguments,
                      std::map<std::string, ProgrammedData>& programmed) {
    std::string_view rest = arguments.addresses;
    while (const std::optional<std::string_view> address = nextPiece(rest, ",")) {
        ProgrammedData data;
        data.line = inspection.line;
        data.data = arguments.data;
        data.address = *address;
        data.size = sizeOf(arguments);
        data.isChecksumCalculated = equalsIgnoringCase(arguments.checksumOption, "+c");
        programmed.insert_or_assign(keyOf(*address), std::move(data));
    }
}

void removeVerified(Inspection& inspection, const CheckedCommand& command, const ProgramArguments& arguments,
                    std::map<std::string, ProgrammedData>& programmed) {
    if (equalsIgnoringCase(arguments.addresses, "all")) {
        for (auto place = programmed.begin(); place != programmed.end();)
            place = verify(inspection, command, arguments, place->second) ? programmed.erase(place)
                                                                          : std::next(place);
        return;
    }
    std::string_view rest = arguments.addresses;
    while (const std::optional<std::string_view> address = nextPiece(rest, ",")) {
        const auto place = programmed.find(keyOf(*address));
        if (place != programmed.end() && verify(inspection, command, arguments, place->second))
            programmed.erase(place);
    }
}

} // namespace

void trackVerification(Inspection& inspection, const CheckedCommand& command) {
    const std::optional<ProgramArguments> arguments = parseProgramArguments(command);
    if (!arguments)
        return;
    auto& programmed = inspection.unverified[dataKey(inspection, command, *arguments)];
    if (isNamed(command, "program"))
        recordProgrammed(inspection, *arguments, programmed);
    else
        removeVerified(inspection, command, *arguments, programmed);
}

void reportUnverified(Inspection& inspection) {
    for (const auto& [key, programmed] : inspection.unverified) {
        for (const auto& [address, data] : programmed) {
            inspection.line = data.line;
            const std::string shown = quoted(data.data) + " at " + quoted(data.address);
            addWarning(inspection, data.isPartlyVerified ? "only a part of " + shown + " is verified"
                                                         : "no verify of " + shown + " follows");
        }
    }
}

} // namespace secapp
