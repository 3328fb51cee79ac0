#include "frontend/help.h"

#include "frontend/command_table.h"
#include "frontend/version.h"
#include "link/ports.h"
#include "link/protocol.h"
#include "link/serial.h"
#include "link/timing.h"
#include "support/streams.h"
#include "transfer/encoders.h"

#include <cstdlib>

namespace secapp {
namespace {

void say(std::string_view text) {
    writeText(stdout, text);
}

void basicOptions() {
    say("where:\n"
        "\t -h \t\tdisplay this help message\n"
        "\t -d serial_port\tuse 'serial_port' (device) as target\n"
        "\t\t\tuse ? to list available ports\n"
        "\t -s script \tread script from file\n"
        "\t -t \t\tread script from terminal (stdin)\n"
        "\t -x command \texecute 'command' only\n"
        "\t\t\tthe -s, -t and -x options and/or immediate commands\n"
        "\t\t\tare mutually exclusive\n\n"
        "\t -v name=value\tassign variable 'name' the value 'value'\n"
        "\t\t\tUse [name] to reference the variable in the script\n"
        "\t\t\tSimple text replacement is performed on each script line\n"
        "\t -p \t\tpause before each script command\n"
        "\t -e denqst\tset command echo options:\n"
        "\t\tq - quiet  - echo nothing [default]\n"
        "\t\td - debug  - echo additional debug information\n"
        "\t\tn - noisy  - echo everything\n"
        "\t\ts - script - echo script commands\n"
        "\t\tt - target - echo target commands\n"
        "\t\tb - buffer - dump raw target buffer\n"
        "\t\te - exit   - display message on exit\n");
}

void boot_usage() {
    say("\n"
        "Booting:\n"
        "To boot the companion image into the device, run the script 'boot_brennix'\nin the scripts directory\n");
}

void udev_usage() {
    say("\n"
        "Udev:\n"
        "On Linux systems, a udev rule should be supplied to enable access to the\ndevice.\n"
        "To do this, run the script 'install_udev_rules' in the scripts\ndirectory\n");
}

void advancedOptions() {
    say("\tAdvanced options:\n");
    say(formatText("\t -g usec\tset (global) timeout for commands in mS. Default is %dmS\n", getTimeoutms()));
    say("\t -b \t\tdisable batchmode (target commands are echoed)\n"
        "\t -A usec \tdelay for usec before each target command\n");
    say(formatText("\t -T decisec \tserial port VTIME value (default %u)\n", getDefaultSerialReadTimeout()));
    say(formatText("\t -M value \tserial port VMIN value (default %u)\n", getDefaultSerialReadMinRead()));
    say("\t -a index\tset download algorithm\n");
    listEncoderAlgorithms();
    say(formatText("\t -w size\tset packet transfer size (default=%d)\n",
                   static_cast<int>(getWordsPerLine())));
    say("\t -m size\tset max transfer buffer size (0=use firmware value)\n"
        "\t -z \tdo not use internal sleep algorithm\n"
        "\nCommand prefixes (first non-space character on a line):\n"
        "\t # \t\tcomment (do not execute)\n"
        "\t - or ! \texecute command quietly\n"
        "\t + \t\texecute command noisily\n"
        "\t % \t\texecute command with debug output\n"
        "\t @ \t\texecute single character command\n"
        "\t ? \t\tpause this command before execution\n");
    boot_usage();
    udev_usage();
}

/// Prints the words of a line of the target's help, the first one as the name of a command.
void printHelpLine(std::string_view line) {
    const std::optional<std::string_view> name = nextWord(line);
    if (!name)
        return;
    say(formatText("\t%-10s\t", std::string(*name).c_str()));
    while (const std::optional<std::string_view> word = nextWord(line))
        say(std::string(*word) + " ");
    say("\n");
}

} // namespace

void usage(const char* programName, bool advanced, int status, const char* deviceName) {
    say(getVersionString(true) + "\n");
    say(formatText("usage: %s [-d serial_port] [-e dnqst] [-g usec] [-hp] [-v var=value]\n"
                   "[-s script]|[-t]|[[-x] command]\n",
                   getBasename(programName).c_str()));
    basicOptions();
    if (advanced)
        advancedOptions();
    displayHandlerHelp();
    target_usage(deviceName, advanced);
    exitProgram(status);
}

void display_usage(const char* deviceName) {
    usage(getProgramName().c_str(), false, 0, deviceName);
}

void displayHandlerHelp() {
    say("\nSupported high-level commands (implemented by this tool) are:\n");
    for (const HandlerEntry& entry : handlerEntries) {
        if (!entry.showInHelp)
            continue;
        if (entry.name != nullptr)
            say(formatText("    %-10s\t%s %s\n              \t%s\n", entry.name, entry.name,
                           entry.argumentHelp, entry.description));
        else
            say(formatText("    %-10s\t%s\n", "<other>", entry.description));
    }
}

void target_usage(const char* deviceName, bool advanced) {
    std::string onlyPort;
    if (deviceName == nullptr) {
        if (const ErrorText error = getSerialDeviceName(-1, onlyPort)) {
            writeText(stderr, *error + "\n");
            return;
        }
        deviceName = onlyPort.c_str();
    }
    HandlerData record;
    record.port->deviceName = deviceName;
    say("\nTarget commands (implemented on the device):\n");
    const Result<std::string> answer = ask(record, advanced ? "helpadvanced" : "help");
    if (!answer) {
        writeText(stderr, formatText("Cannot display target help: %s\n", answer.error()->c_str()));
        return;
    }
    std::string_view rest = *answer;
    while (const std::optional<std::string_view> line = nextPiece(rest, "\r\n"))
        printHelpLine(*line);
}

} // namespace secapp
