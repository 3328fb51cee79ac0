#include "frontend/command_table.h"

#include "commands/boot_and_identity.h"
#include "commands/flash_arguments.h"
#include "commands/passthrough.h"
#include "commands/ram_download.h"
#include "commands/target_info.h"
#include "frontend/local_commands.h"
#include "frontend/variables.h"
#include "frontend/version.h"

#include <algorithm>

namespace secapp {
namespace {

bool matches(const HandlerEntry& entry, std::string_view word) {
    if (entry.name == nullptr)
        return true;
    if (entry.matchLength == 0)
        return equalsIgnoringCase(word, entry.name);
    return startsWithIgnoringCase(word, std::string_view(entry.name).substr(0, entry.matchLength));
}

} // namespace

const std::array<HandlerEntry, 17> handlerEntries = {{
    {.name = "program",
     .description = "program file or value into flash at baseAddress",
     .argumentHelp =
         "[+c|+wN] (<file>|<fill_value>) <baseAddress>\n\t\t\t  [<fill_length>].\n"
         "\t\t\t  where: +c==calculate checksum\n\t\t\t  +wN==width of fill_value, where N is 1, 2 or 4",
     .handler = programVerifyEraseHandler},
    {.name = "verify",
     .description = "verify that flash contents matches the file or value",
     .argumentHelp = "[+c|+i|+wN] (<file>|<fill_value>) <baseAddress>\n\t\t\t  [<fill_length>].\n"
                     "\t\t\t  where: +c==calculate checksum, +i==ignore checksum\n"
                     "\t\t\t  +wN==width of fill_value, where N is 1, 2 or 4",
     .handler = programVerifyEraseHandler},
    {.name = "erase",
     .description = "erase flash contents",
     .argumentHelp = "<baseAddress>",
     .handler = programVerifyEraseHandler},
    {.name = "blankCheck",
     .description = "blankcheck",
     .argumentHelp = "<baseAddress>",
     .handler = programVerifyEraseHandler},
    {.name = "setBoot",
     .description = "set the active boot flash bank",
     .argumentHelp = "[BankA|BankB|0|1]",
     .handler = setBootHandler},
    {.name = "setVidPid",
     .description = "program the OTP VID and PID",
     .argumentHelp = "<vid> <pid>",
     .handler = setVidPidHandler},
    {.name = "echo",
     .description = "echo all parameters to the output stream",
     .argumentHelp = "<parameters>*",
     .handler = echoHandler},
    {.name = "delay",
     .description = "delay for number of microseconds",
     .argumentHelp = "<microseconds>",
     .handler = delayHandler},
    {.name = "pause",
     .description = "if on or off, switch autoPause on,\n\t\t\telse display message and wait for <ENTER>.\n"
                    "\t\t\t(Not possible if script is from stdin)",
     .argumentHelp = "[on|off] | message",
     .handler = pauseHandler},
    {.name = "timer",
     .description = "start/stop a timer",
     .argumentHelp = "<start|stop|print>",
     .handler = timerHandler},
    {.name = "var",
     .description = "create a local variable",
     .argumentHelp = "name=value",
     .matchLength = 3,
     .handler = varHandler},
    {.name = "version", .description = "display versions", .showInHelp = false, .handler = versionHandler},
    {.name = "targetInfo",
     .description = "display information about the target",
     .showInHelp = false,
     .handler = infoHandler},
    {.name = "queryFlash",
     .description = "query target flash",
     .showInHelp = false,
     .handler = queryFlashHandler},
    {.name = "download",
     .description = "download to RAM",
     .argumentHelp = "<file>",
     .showInHelp = false,
     .handler = downloadHandler},
    {.name = "print", .description = "Print the arguments", .showInHelp = false, .handler = genericHandler},
    {.name = nullptr,
     .description = "Any command supported by the target",
     .handler = genericHandlerWithAddressParser},
}};

const HandlerEntry& findHandler(std::string_view word) {
    return *std::find_if(
        handlerEntries.begin(), handlerEntries.end(),
        [&](const HandlerEntry& entry) { return matches(entry, word); });
}

} // namespace secapp
