#include "frontend/help.h"
#include "frontend/options.h"
#include "frontend/script.h"
#include "frontend/version.h"
#include "link/ports.h"
#include "link/serial.h"
#include "link/wire.h"
#include "support/echo.h"
#include "support/file.h"
#include "support/line_source.h"
#include "support/streams.h"
#include "transfer/encoders.h"

#include <cstdlib>

namespace secapp {
namespace {

constexpr int startFailure = 1;
constexpr int commandFailure = -1;
constexpr int noScript = -2;

/// The failing piece of a script line and its error.
struct FailedCommand {
    std::string piece;
    std::string error;
};

std::string resolveDevice(const Options& options) {
    std::string device;
    if (options.deviceName != nullptr) {
        device = options.deviceName;
    } else if (const ErrorText error = getSerialDeviceName(-1, device)) {
        writeText(stderr, *error + "\n");
        std::exit(startFailure);
    }
    if ((options.echoFlags & ECHO_PORT) != 0)
        writeText(stderr, formatText("Using serial port %s\n", device.c_str()));
    return device;
}

File openScript(const Options& options) {
    if (!options.scriptPath)
        return nullptr;
    File script = openDataFile(*options.scriptPath);
    if (!script) {
        writeText(stderr, formatText("Unable to open script file %s\n", options.scriptPath->c_str()));
        std::exit(startFailure);
    }
    return script;
}

void checkWordsPerLine() {
    if (getWordsPerLine() - 1 < maxWordsPerLine)
        return;
    writeText(stderr, formatText("Words per line must be >0 and <= %d\n", static_cast<int>(maxWordsPerLine)));
    std::exit(startFailure);
}

/// `lines` reads the script file or standard input; it is used only when a script is run.
ScriptSource makeSource(const Options& options, LineSource& lines) {
    ScriptSource source;
    source.batchLineDue = options.batchMode;
    source.immediateLine = options.immediateLine;
    source.name = options.scriptPath.value_or(options.fromTerminal ? "Terminal" : "<Command line>");
    if (options.scriptPath || options.fromTerminal) {
        readWhole(lines);
        source.lines = &lines;
    }
    return source;
}

/// Runs the commands of one line until one fails.
std::optional<FailedCommand> runLine(HandlerData& record, std::string_view line, std::uint32_t echoFlags) {
    setLastTargetCommand("");
    if (line.find('\0') != std::string_view::npos)
        return FailedCommand{std::string(line.substr(0, line.find('\0'))), "Script line holds a zero byte"};
    while (const std::optional<std::string_view> piece = nextPiece(line, ";")) {
        setLastTargetCommand("");
        if (ErrorText error = runScriptCommand(record, *piece, echoFlags))
            return FailedCommand{std::string(trimRight(*piece)), *error};
    }
    return std::nullopt;
}

/// An error if the script could not be read to its end.
std::optional<FailedCommand> checkReading(const ScriptSource& source) {
    if (source.lines == nullptr || std::ferror(source.lines->stream) == 0)
        return std::nullopt;
    return FailedCommand{"", "Script could not be read to its end"};
}

std::optional<FailedCommand> runScript(HandlerData& record, ScriptSource& source, std::uint32_t echoFlags) {
    if (std::optional<FailedCommand> failure = checkReading(source))
        return failure;
    while (const std::optional<std::string> line = getScriptLine(source, deviceName(record))) {
        debug_print("line: %d, %s\n", source.lineCounter, line->c_str());
        if (std::optional<FailedCommand> failure = runLine(record, *line, echoFlags))
            return failure;
    }
    setLastTargetCommand("");
    return checkReading(source);
}

void reportFailure(const ScriptSource& source, const FailedCommand& failure) {
    writeText(stderr, formatText("Error: %s:%d: %s\n", source.name.c_str(), source.lineCounter,
                                 failure.error.c_str()));
    writeText(stderr, formatText("   Script cmd:      %s\n", failure.piece.c_str()));
    writeText(stderr, formatText("   Last target cmd: %s\n", getLastTargetCommand().c_str()));
}

void closeTargetPort(HandlerData& record) {
    if (record.port->handle == 0)
        return;
    debug_print("Closing %s", deviceName(record));
    serial_terminate(*record.port);
}

[[noreturn]] void run(int argc, char** argv) {
    setProgramName(argc > 0 ? argv[0] : "secapp");
    const Options options = parseOptions(argc, argv);
    const std::string device = resolveDevice(options);
    const File script = openScript(options);
    checkWordsPerLine();
    if (!options.scriptPath && !options.fromTerminal && !options.immediateLine)
        usage(getProgramName().c_str(), false, noScript, device.c_str());

    HandlerData record;
    record.port->deviceName = device;
    record.echoFlags = options.echoFlags;
    LineSource scriptLines{.stream = script.get()};
    ScriptSource source = makeSource(options, script ? scriptLines : standardInput());
    const std::optional<FailedCommand> failure = runScript(record, source, options.echoFlags);
    if (failure)
        reportFailure(source, *failure);
    closeTargetPort(record);
    if (failure)
        writeText(stderr, "Terminated with errors\n");
    if ((options.echoFlags & echoExitMask) != 0)
        writeText(stdout, formatText("Processed %d lines\n", source.lineCounter));
    exitProgram(failure ? commandFailure : 0);
}

} // namespace
} // namespace secapp

int main(int argc, char** argv) {
    secapp::runProgram(secapp::run, argc, argv, secapp::commandFailure);
}
