#include "fuzz.h"
#include "memory_port.h"

#include "frontend/prompt.h"
#include "frontend/script.h"
#include "frontend/variables.h"
#include "link/serial.h"
#include "link/timing.h"
#include "link/wire.h"
#include "support/echo.h"
#include "transfer/encoders.h"
#include "transfer/staging.h"

#include <algorithm>
#include <vector>

using namespace fuzzing;

namespace {

/// Enough for variables that double their length with each command to reach their limit.
constexpr int commandLimit = 40;

/// The user confirms everything.
std::string answers(std::size_t{2} * commandLimit, '\n');

void startTarget() {
    // Each memory: name, base, size, page, buffer, blank.
    const vqxsim::FirmwareConfig config{.regions = {{"FLASH", 0x10000000, 0x2000, 512, 0x800, 0xFF},
                                                    {"BANKB", 0x10002000, 0x1000, 64, 0x100, 0x00},
                                                    {"MORVI", 0x14000000, 0x1000, 256, 0x80, 0xFF},
                                                    {"TOP", 0xFFFFFF00, 0x100, 16, 0x80, 0xFF}},
                                        .directory = {}};
    MemoryPort& port = memoryPort();
    port.toHost.clear();
    port.taken = 0;
    require(!vqxsim::startFirmware(port.firmware, config), "the firmware starts");
}

/// Settings from the command line; returns the echo flags.
std::uint32_t applySettings(unsigned settings) {
    secapp::setBufferEncodeAlgorithm(settings & 1);
    secapp::setWordsPerLine((settings & 2) != 0 ? 1 : secapp::maxWordsPerLine);
    secapp::setMaxTransferBufferSize((settings & 4) != 0 ? 100 : 0);
    memoryPort().writeLimit = (settings & 8) != 0 ? 7 : 4096;
    return (settings & 16) != 0 ? ~secapp::ECHO_IMMEDIATE : 0;
}

void resetTool() {
    silenceOutput();
    static std::FILE* const terminal = ::fmemopen(answers.data(), answers.size(), "r");
    require(terminal != nullptr, "the answers can be read");
    std::rewind(terminal);
    stdin = terminal;
    secapp::scriptVariables() = {};
    secapp::setScriptPause(0);
    secapp::HandlerData record;
    require(!secapp::runScriptCommand(record, "timer stop", 0), "a timer can always be stopped");
}

bool isQuiet(const MemoryPort& port) {
    return port.taken == port.toHost.size() && port.firmware.line.empty() && !port.firmware.burst;
}

/// Checks the promise of a successful command with a plain address: the target holds the image, or the memory
/// is blank from there to its end.
void checkPromise(std::string_view command) {
    std::vector<std::string> words;
    while (const auto word = secapp::nextWord(command))
        words.emplace_back(*word);
    const std::string verb = words.empty() ? "" : lowered(words[0]);
    const bool transfers = verb == "program" || verb == "verify";
    const bool blanks = verb == "erase" || verb == "blankcheck";
    if ((!transfers || words.size() != 3) && (!blanks || words.size() != 2))
        return;
    const std::optional<std::uint64_t> address = vqxsim::parseNumber(words.back());
    const std::optional<std::string> image = transfers ? madeImage(words[1]) : std::nullopt;
    // Others would need a second evaluation of expressions.
    if (!address || !words.back().starts_with("0x") || *address > UINT32_MAX || (transfers && !image))
        return;
    vqxsim::Flash& flash = memoryPort().firmware.flash;
    const vqxsim::Region* const region = vqxsim::findRegion(flash, *address);
    require(region != nullptr, "what succeeds has a region");
    std::vector<std::uint8_t> found;
    const vqxsim::ErrorText error = vqxsim::readFlash(
        flash, *address, transfers ? image->size() : region->spec.base + region->spec.size - *address, found);
    require(!error, "an image lies in one region");
    if (transfers)
        require(std::equal(found.begin(), found.end(), image->begin(), image->end(),
                           [](std::uint8_t byte, char c) { return byte == static_cast<std::uint8_t>(c); }),
                "success means that the target holds the image");
    else
        require(std::all_of(found.begin(), found.end(),
                            [&](std::uint8_t byte) { return byte == region->spec.blank; }),
                "success means that the region is blank");
}

/// Runs one command and checks the rules for all commands; false when it failed.
bool runCommand(secapp::HandlerData& record, std::string_view command, std::uint32_t echoFlags) {
    const bool quiet = isQuiet(memoryPort());
    const std::optional<std::string> text =
        secapp::replaceVariables(secapp::scriptVariables(), stripped(command));
    const std::int32_t timeout = secapp::getTimeoutms();
    secapp::setLastTargetCommand("");
    const secapp::ErrorText error = secapp::runScriptCommand(record, command, echoFlags);
    require(secapp::DEBUG == 0, "traces end with their command");
    require(secapp::getTimeoutms() == timeout, "a command leaves the time-out alone");
    require(secapp::getReadlineEchoPeriod() == 0, "a command leaves the progress dots alone");
    require(record.echoFlags == 0 && record.port->linkError == 0 && record.response.empty(),
            "a command changes nothing but the port of its run");
    if (!error && quiet && text)
        checkPromise(*text);
    return !error;
}

} // namespace

/// The first byte chooses settings, the rest is a script. Runs it on a simulated target in memory until a
/// command fails.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0)
        return 0;
    resetTool();
    startTarget();
    const std::uint32_t echoFlags = applySettings(data[0]);
    secapp::HandlerData record;
    record.port->deviceName = memoryDevice();
    std::string script(textOf(data + 1, size - 1));
    // secapp refuses a script line with a zero byte earlier.
    std::replace(script.begin(), script.end(), '\0', ' ');
    std::string_view rest = script;
    for (int commands = 0; commands < commandLimit; ++commands) {
        const std::optional<std::string_view> command = secapp::nextPiece(rest, ";\n");
        // A "?" alone shows the help and ends the program.
        if (!command || stripped(*command) == "?" || !runCommand(record, *command, echoFlags))
            break;
    }
    return 0;
}
