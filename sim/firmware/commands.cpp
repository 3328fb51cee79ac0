#include "firmware/commands.h"

#include <algorithm>
#include <array>
#include <strings.h>

namespace vqxsim {

namespace {

constexpr std::uint64_t noNumbers = 0;
constexpr std::uint64_t anyNumber = UINT64_MAX;
constexpr std::uint64_t wordNumber = UINT32_MAX;
constexpr std::size_t unlimited = static_cast<std::size_t>(-1);
constexpr std::uint64_t dumpLimit = 0x100000;

/// No command takes longer, so that times never overflow.
constexpr std::chrono::microseconds longestWork = std::chrono::hours(24 * 365);

/// The words after the command word, and the text that they were cut from.
struct Arguments {
    std::string_view text;
    std::vector<std::string_view> words;
    std::vector<std::uint64_t> numbers; ///< of a command that takes hexadecimal numbers
};

struct Command {
    std::string_view word;
    std::string_view arguments; ///< for the help lists
    std::size_t fewest;         ///< argument words
    std::size_t most;
    std::uint64_t numberLimit; ///< words are hexadecimal numbers up to this, or `noNumbers`
    bool advanced;             ///< listed by helpadvanced only
    ErrorText (*run)(Firmware&, const Arguments&, Answer&);
};

/// Adds the commands of the table, one per line.
void listCommands(Answer& answer, bool advanced);

void addLine(Answer& answer, std::string_view line) {
    answer.text.append(line).append("\r\n");
}

std::string usage(const Command& command) {
    return std::string(trimmed(
        formatText("%s %s", std::string(command.word).c_str(), std::string(command.arguments).c_str())));
}

/// Fails when [offset, offset + length) is not inside the transfer buffer.
ErrorText checkBuffer(const Firmware& firmware, std::uint64_t offset, std::uint64_t length) {
    const std::uint64_t size = firmware.buffer.size;
    if (offset <= size && length <= size - offset)
        return std::nullopt;
    return formatText("0x%llx bytes at offset 0x%llx exceed the buffer of 0x%llx bytes", shown(length),
                      shown(offset), shown(size));
}

ErrorText batchMode(Firmware& firmware, const Arguments& arguments, Answer&) {
    if (arguments.numbers[0] > 1)
        return "Mode is 0 or 1";
    firmware.batchMode = arguments.numbers[0] == 1;
    return std::nullopt;
}

ErrorText print(Firmware&, const Arguments& arguments, Answer& answer) {
    addLine(answer, arguments.text);
    return std::nullopt;
}

ErrorText help(Firmware&, const Arguments&, Answer& answer) {
    listCommands(answer, false);
    return std::nullopt;
}

ErrorText helpAdvanced(Firmware&, const Arguments&, Answer& answer) {
    listCommands(answer, true);
    return std::nullopt;
}

ErrorText version(Firmware&, const Arguments&, Answer& answer) {
    addLine(answer, "VQX companion firmware 1.0 (simulated)");
    return std::nullopt;
}

ErrorText queryPart(Firmware&, const Arguments&, Answer& answer) {
    addLine(answer, "Partid = 0x51a0c0de");
    addLine(answer, "Decode = VQX51");
    addLine(answer, "Core clock = 12000000");
    return std::nullopt;
}

ErrorText queryFlash(Firmware& firmware, const Arguments&, Answer& answer) {
    const auto& regions = firmware.flash.regions;
    if (regions.empty()) {
        addLine(answer, "No Flash");
        return std::nullopt;
    }
    addLine(answer, formatText("Number of Flash Devices = %zu", regions.size()));
    for (const Region& region : regions) {
        const RegionSpec& spec = region.spec;
        addLine(answer, "Name = " + spec.name);
        addLine(answer, formatText("Base = 0x%llx", shown(spec.base)));
        addLine(answer, formatText("Size = 0x%llx", shown(spec.size)));
        addLine(answer, formatText("Page = 0x%llx", shown(spec.page)));
        addLine(answer, formatText("Buffer = 0x%llx", shown(spec.buffer)));
        addLine(answer, formatText("Blank = 0x%02x", spec.blank));
    }
    return std::nullopt;
}

ErrorText queryId(Firmware& firmware, const Arguments&, Answer& answer) {
    const UsbIdentity identity = firmware.persistent.usbIdentity.value_or(UsbIdentity());
    addLine(answer, "Serial = 5a100000-00000001-00c0ffee-20240229");
    addLine(answer, formatText("USB vendor = 0x%04x", identity.vendor));
    addLine(answer, formatText("USB product = 0x%04x", identity.product));
    addLine(answer, formatText("Boot bank = %u", firmware.persistent.bootBank));
    return std::nullopt;
}

ErrorText queryMorvi(Firmware& firmware, const Arguments&, Answer& answer) {
    const auto& regions = firmware.flash.regions;
    const bool present = std::any_of(regions.begin(), regions.end(), [](const Region& region) {
        return strcasecmp(region.spec.name.c_str(), "MORVI") == 0;
    });
    if (!present)
        return "No external flash";
    addLine(answer, "Device family = MV25");
    return std::nullopt;
}

ErrorText debugOptions(Firmware& firmware, const Arguments& arguments, Answer&) {
    if (arguments.numbers[0] > 7)
        return "Options are 0 to 7";
    firmware.debugOptions = static_cast<unsigned>(arguments.numbers[0]);
    return std::nullopt;
}

ErrorText dataSet(Firmware& firmware, const Arguments& arguments, Answer&) {
    const std::uint64_t length = arguments.numbers[0] * 4;
    const std::uint64_t fill = arguments.numbers[1];
    if (ErrorText error = checkBuffer(firmware, 0, length))
        return error;
    if (fill > 0xFF)
        return "Fill is one byte";
    const bool filled = fillMemory(firmware.buffer, 0, length, static_cast<std::uint8_t>(fill));
    return filled ? std::nullopt : ErrorText("Buffer cannot be filled");
}

ErrorText dataBurst(Firmware& firmware, const Arguments& arguments, Answer&) {
    const auto& numbers = arguments.numbers;
    if (numbers[0] == 0)
        return "Burst of no bytes";
    if (ErrorText error = checkBuffer(firmware, numbers[1], numbers[0]))
        return error;
    firmware.burst = Burst{numbers[0], numbers[1], static_cast<std::uint32_t>(numbers[2]), {}};
    return std::nullopt;
}

ErrorText dataPacket(Firmware& firmware, const Arguments& arguments, Answer&) {
    const auto& numbers = arguments.numbers;
    const std::uint64_t length = (numbers.size() - 1) * 4;
    ErrorText error = checkBuffer(firmware, numbers[0], length);
    if (error || firmware.flash.nullMemory)
        return error;
    std::uint8_t* word = writableBytes(firmware.buffer, numbers[0], length).data();
    for (std::size_t i = 1; i < numbers.size(); ++i, word += 4)
        for (unsigned byte = 0; byte < 4; ++byte)
            word[byte] = static_cast<std::uint8_t>(numbers[i] >> (8 * byte));
    return std::nullopt;
}

/// Checks the arguments of the page commands and returns their part of the transfer buffer.
ErrorText stagedPages(Firmware& firmware, const Arguments& arguments, std::span<const std::uint8_t>& data) {
    std::uint64_t length = 0;
    ErrorText error = checkPages(firmware.flash, arguments.numbers[0], arguments.numbers[1], length);
    if (!error)
        error = checkBuffer(firmware, 0, length);
    const Region* const region = findRegion(firmware.flash, arguments.numbers[0]);
    if (!error && region->spec.buffer != 0 && length > region->spec.buffer)
        error = formatText("0x%llx bytes exceed the buffer of 0x%llx bytes of this memory", shown(length),
                           shown(region->spec.buffer));
    if (!error)
        data = writableBytes(firmware.buffer, 0, length);
    return error;
}

ErrorText programPages(Firmware& firmware, const Arguments& arguments, Answer& answer) {
    std::span<const std::uint8_t> data;
    if (ErrorText error = stagedPages(firmware, arguments, data))
        return error;
    const auto most = longestWork / std::max(firmware.programTime, std::chrono::microseconds(1));
    answer.busy =
        firmware.programTime * std::min(static_cast<std::int64_t>(arguments.numbers[1]), std::int64_t{most});
    return programFlash(firmware.flash, arguments.numbers[0], data, firmware.stuckBit);
}

ErrorText verifyPages(Firmware& firmware, const Arguments& arguments, Answer&) {
    std::span<const std::uint8_t> data;
    if (ErrorText error = stagedPages(firmware, arguments, data))
        return error;
    return verifyFlash(firmware.flash, arguments.numbers[0], data);
}

ErrorText readWord(Firmware& firmware, const Arguments& arguments, Answer& answer) {
    const std::uint64_t address = arguments.numbers[0];
    if (address % 4 != 0)
        return formatText("Address 0x%08llx is not at the start of a word", shown(address));
    std::vector<std::uint8_t> bytes;
    if (ErrorText error = readFlash(firmware.flash, address, 4, bytes))
        return error;
    addLine(answer, formatText("0x%02x%02x%02x%02x", bytes[3], bytes[2], bytes[1], bytes[0]));
    return std::nullopt;
}

ErrorText erase(Firmware& firmware, const Arguments& arguments, Answer& answer) {
    if (findRegion(firmware.flash, arguments.numbers[0]) != nullptr)
        answer.busy = firmware.eraseTime;
    return eraseFlash(firmware.flash, arguments.numbers[0], firmware.stuckBit);
}

ErrorText blankCheck(Firmware& firmware, const Arguments& arguments, Answer&) {
    return checkBlank(firmware.flash, arguments.numbers[0]);
}

ErrorText bootBank(Firmware& firmware, const Arguments& arguments, Answer&) {
    const auto bank = parseNumber(arguments.words[0]);
    if (!bank || *bank > 1)
        return "Boot bank is 0 or 1";
    firmware.persistent.bootBank = static_cast<unsigned>(*bank);
    return std::nullopt;
}

ErrorText programUsbId(Firmware& firmware, const Arguments& arguments, Answer&) {
    const std::uint64_t product = arguments.numbers[0];
    const std::uint64_t vendor = arguments.numbers[1];
    if (product > 0xFFFF || vendor > 0xFFFF)
        return "USB identifiers are numbers of 16 bits";
    const UsbIdentity identity{static_cast<std::uint16_t>(product), static_cast<std::uint16_t>(vendor)};
    const UsbIdentity found = firmware.persistent.usbIdentity.value_or(identity);
    if (found != identity)
        return formatText("USB identifiers are already programmed: product 0x%04x, vendor 0x%04x",
                          found.product, found.vendor);
    firmware.persistent.usbIdentity = identity;
    return std::nullopt;
}

ErrorText dump(Firmware& firmware, const Arguments& arguments, Answer& answer) {
    const std::uint64_t address = arguments.numbers[0];
    const std::uint64_t count = arguments.numbers[1];
    if (count > dumpLimit)
        return formatText("At most 0x%llx bytes at a time", shown(dumpLimit));
    std::vector<std::uint8_t> bytes;
    if (ErrorText error = readFlash(firmware.flash, address, count, bytes))
        return error;
    for (std::size_t start = 0; start < bytes.size(); start += 16) {
        std::string line = formatText("%08llx:", shown(address + start));
        for (std::size_t i = start; i < std::min(start + 16, bytes.size()); ++i)
            line += formatText(" %02x", bytes[i]);
        addLine(answer, line);
    }
    return std::nullopt;
}

constexpr auto commands = std::to_array<Command>({
    {"batchmode", "0|1", 1, 1, anyNumber, true, batchMode},
    {"blankCheck", "address", 1, 1, anyNumber, false, blankCheck},
    {"bootBank", "0|1", 1, 1, noNumbers, false, bootBank},
    {"databurst", "length offset checksum", 3, 3, wordNumber, true, dataBurst},
    {"dataPacket", "offset word...", 2, unlimited, wordNumber, true, dataPacket},
    {"dataSet", "words fill", 2, 2, wordNumber, true, dataSet},
    {"DebugOptions", "0..7", 1, 1, anyNumber, true, debugOptions},
    {"dump", "address count", 2, 2, anyNumber, false, dump},
    {"eraseFlash", "address", 1, 1, anyNumber, false, erase},
    {"help", "", 0, 0, noNumbers, false, help},
    {"helpadvanced", "", 0, 0, noNumbers, false, helpAdvanced},
    {"otp_ProgUSBID", "product vendor", 2, 2, anyNumber, true, programUsbId},
    {"print", "text...", 0, unlimited, noNumbers, false, print},
    {"programPage", "address pages", 2, 2, anyNumber, true, programPages},
    {"queryFlash", "", 0, 0, noNumbers, false, queryFlash},
    {"queryID", "", 0, 0, noNumbers, false, queryId},
    {"queryMORVI", "", 0, 0, noNumbers, false, queryMorvi},
    {"queryPart", "", 0, 0, noNumbers, false, queryPart},
    {"readWord", "address", 1, 1, anyNumber, false, readWord},
    {"verifyPage", "address pages", 2, 2, anyNumber, true, verifyPages},
    {"version", "", 0, 0, noNumbers, false, version},
});

void listCommands(Answer& answer, bool advanced) {
    for (const Command& command : commands)
        if (advanced || !command.advanced)
            addLine(answer, usage(command));
}

auto findCommand(std::string_view word) {
    return std::find_if(
        commands.begin(), commands.end(), [=](const Command& c) { return c.word == word; });
}

ErrorText readArguments(const Command& command, std::string_view text, Arguments& arguments) {
    arguments.text = trimmed(text);
    for (std::size_t start = 0; (start = text.find_first_not_of(" \t", start)) != std::string_view::npos;) {
        const std::size_t end = std::min(text.find_first_of(" \t", start), text.size());
        arguments.words.push_back(text.substr(start, end - start));
        start = end;
    }
    if (arguments.words.size() < command.fewest || arguments.words.size() > command.most)
        return formatText("Usage: %s", usage(command).c_str());
    if (command.numberLimit == noNumbers)
        return std::nullopt;
    for (const std::string_view word : arguments.words) {
        const auto number = parseHexadecimal(word);
        if (!number)
            return formatText("Not a hexadecimal number: %s", printable(word, 64).c_str());
        if (*number > command.numberLimit)
            return formatText("Number out of range: %s", printable(word, 64).c_str());
        arguments.numbers.push_back(*number);
    }
    return std::nullopt;
}

} // namespace

bool isCommand(std::string_view word) {
    return findCommand(word) != commands.end();
}

ErrorText runCommand(Firmware& firmware, std::string_view line, Answer& answer) {
    const std::string_view word = line.substr(0, line.find_first_of(" \t"));
    const auto command = findCommand(word);
    const auto& accepted = firmware.accepted;
    if (std::find(accepted.begin(), accepted.end(), word) != accepted.end())
        return std::nullopt;
    if (command == commands.end())
        return formatText("Unknown command %s", printable(word, 64).c_str());
    Arguments arguments;
    if (ErrorText error = readArguments(*command, line.substr(word.size()), arguments))
        return error;
    return command->run(firmware, arguments, answer);
}

} // namespace vqxsim
