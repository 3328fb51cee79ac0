#include "checker/flash_checks.h"

#include "checker/number_checks.h"
#include "commands/expressions.h"

#include <algorithm>
#include <iterator>

#include <sys/stat.h>

namespace secapp {
namespace {

bool hasData(const CheckedCommand& command) {
    return isNamed(command, "program") || isNamed(command, "verify");
}

/// Applies an option; false if there is no such option.
bool readOption(const std::string& option, ProgramArguments& arguments) {
    for (const auto& [name, width] : {std::pair{"+w1", 1U}, {"+w2", 2U}, {"+w4", 4U}}) {
        if (!equalsIgnoringCase(option, name))
            continue;
        arguments.widthOption = option;
        arguments.width = width;
        return true;
    }
    if (!equalsIgnoringCase(option, "+c") && !equalsIgnoringCase(option, "+i"))
        return false;
    arguments.checksumOption = option;
    return true;
}

void checkOptions(Inspection& inspection, const CheckedCommand& command) {
    const bool downloads = isNamed(command, "download");
    const std::string& word = command.words.front();
    ProgramArguments options;
    for (std::size_t at = 1; at < firstArgument(command); ++at) {
        const std::string& option = command.words[at];
        if (!readOption(option, options) || (downloads && !equalsIgnoringCase(option, "+c")))
            addError(inspection, quoted(option) + " is not an option of " + quoted(word));
    }
    const std::optional<ProgramArguments> arguments = parseProgramArguments(command);
    const bool hasFile = downloads || (arguments && arguments->isFile);
    if (!options.checksumOption.empty() && !hasFile)
        addError(inspection, quoted(options.checksumOption) + " is possible with a file only");
    else if (equalsIgnoringCase(options.checksumOption, "+i") && isNamed(command, "program"))
        addError(inspection, quoted(options.checksumOption) + " is not possible with " + quoted(word));
    if (!options.widthOption.empty() && !downloads && (!arguments || arguments->isFile))
        addWarning(inspection, quoted(options.widthOption) + " has no effect: only a value has a width");
}

void checkLength(Inspection& inspection, const ProgramArguments& arguments) {
    const std::string shown = quoted(arguments.length);
    if (isSplit(arguments.addresses, arguments.length))
        return addError(inspection, shown + " is taken as the length: " + std::string(oneAddressWord));
    checkExpression(inspection, arguments.length);
    const std::optional<std::uint64_t> number = numericValue(arguments.length);
    if (!number)
        return;
    const auto length = static_cast<std::uint32_t>(*number);
    if (*number == 0)
        addWarning(inspection, "a length of " + shown + " transfers nothing");
    else if (static_cast<std::int32_t>(length) <= 0)
        addError(inspection, "a length of " + shown + " transfers nothing");
    else if (*number > UINT32_MAX)
        addError(inspection, "a length of " + shown + formatText(" is read as 0x%x", length));
    else if (length % arguments.width != 0)
        addError(
            inspection,
            formatText(
                "the length %s is not a multiple of the width %u: the last %u bytes are filled with zeros",
                shown.c_str(), arguments.width, length % arguments.width));
}

void checkValue(Inspection& inspection, const ProgramArguments& arguments) {
    constexpr std::uint32_t bitsPerByte = 8;
    const std::string shown = quoted(arguments.data);
    const std::optional<std::uint64_t> value = numericValue(arguments.data);
    struct stat status {};
    if (!value)
        addError(inspection, shown + " is a value, not a file: it has only hexadecimal digits");
    else if (::stat(arguments.data.c_str(), &status) == 0)
        addError(inspection,
                 shown + " is a value, not the file of that name: write ./" + arguments.data +
                     formatText(" for the file or 0x%x for the value", static_cast<std::uint32_t>(*value)));
    else if (arguments.width < sizeof(std::uint32_t) && *value >> (bitsPerByte * arguments.width) != 0)
        addError(inspection, formatText("only the low %u bits of %s are used", bitsPerByte * arguments.width,
                                        shown.c_str()));
    if (value)
        checkNumber(inspection, arguments.data);
    if (!arguments.length.empty())
        checkLength(inspection, arguments);
}

void checkAddresses(Inspection& inspection, std::string_view addresses) {
    if (addresses.find_first_not_of(',') == std::string_view::npos)
        addError(inspection, quoted(addresses) + " has no address: nothing is done");
    while (const std::optional<std::string_view> address = nextPiece(addresses, ","))
        checkAddress(inspection, *address);
}

} // namespace

bool isFlashCommand(const CheckedCommand& command) {
    constexpr std::string_view names[] = {"program", "verify", "erase", "blankCheck"};
    return std::any_of(std::begin(names), std::end(names),
                       [&](std::string_view name) { return isNamed(command, name); });
}

bool isSplit(std::string_view addresses, std::string_view following) {
    constexpr std::string_view joints = ",*/-+";
    return joints.find(addresses.back()) != std::string_view::npos ||
           joints.find(following.front()) != std::string_view::npos;
}

std::size_t firstArgument(const CheckedCommand& command) {
    std::size_t limit = 1;
    if (isFlashCommand(command))
        limit = command.words.size();
    else if (isNamed(command, "download"))
        limit = std::min<std::size_t>(2, command.words.size());
    std::size_t at = 1;
    while (at < limit && command.words[at].front() == '+')
        ++at;
    return at;
}

std::optional<ProgramArguments> parseProgramArguments(const CheckedCommand& command) {
    const std::size_t at = hasData(command) ? firstArgument(command) : command.words.size();
    if (at >= command.words.size())
        return std::nullopt;
    const auto wordOrEmpty = [&](std::size_t place) {
        return place < command.words.size() ? command.words[place] : std::string();
    };
    ProgramArguments arguments;
    for (std::size_t option = 1; option < at; ++option)
        (void)readOption(command.words[option], arguments);
    arguments.data = command.words[at];
    arguments.isFile = !isNumeric(arguments.data);
    arguments.addresses = wordOrEmpty(at + 1);
    if (!arguments.isFile)
        arguments.length = wordOrEmpty(at + 2);
    return arguments;
}

bool namesFile(const CheckedCommand& command) {
    return hasData(command) || isNamed(command, "download");
}

std::optional<std::string> fileOf(const CheckedCommand& command) {
    const std::size_t at = namesFile(command) ? firstArgument(command) : command.words.size();
    if (at >= command.words.size() || (hasData(command) && isNumeric(command.words[at])))
        return std::nullopt;
    return command.words[at];
}

const ImageFile& checkImage(Inspection& inspection, const CheckedCommand& command, const std::string& name) {
    const auto [place, isNew] = inspection.images.try_emplace(name);
    ImageFile& image = place->second;
    if (!isNew)
        return image;
    image = inspectImage(name);
    if (image.problem.empty())
        return image;
    // Only a download reads a pipe.
    const bool isPossible = image.isPipe && isNamed(command, "download");
    const auto report = isPossible ? addWarning : addError;
    constexpr std::size_t longestPath = 4096;
    report(inspection, quoted(name, longestPath) + " " + image.problem);
    return image;
}

void checkFlashCommand(Inspection& inspection, const CheckedCommand& command) {
    if (!isFlashCommand(command) && !namesFile(command))
        return;
    checkOptions(inspection, command);
    if (const std::optional<std::string> file = fileOf(command))
        (void)checkImage(inspection, command, *file);
    const std::size_t at = firstArgument(command) + (hasData(command) ? 1 : 0);
    if (isFlashCommand(command) && at < command.words.size())
        checkAddresses(inspection, command.words[at]);
    const std::optional<ProgramArguments> arguments = parseProgramArguments(command);
    if (arguments && !arguments->isFile)
        checkValue(inspection, *arguments);
}

} // namespace secapp
