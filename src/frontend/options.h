#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace secapp {

/// What the command line asks for, apart from the settings that the option parser hands to the rooms that
/// read them.
struct Options {
    /// The device of `-d`; null when none was named. Points into the arguments.
    const char* deviceName = nullptr;
    /// The script file of `-s`.
    std::optional<std::string> scriptPath;
    /// `-t`: the script comes from standard input.
    bool fromTerminal = false;
    /// Not switched off by `-b`.
    bool batchMode = true;
    std::uint32_t echoFlags = 0;
    /// The words left over, each followed by a blank.
    std::optional<std::string> immediateLine;
};

/// Reads the command line and applies its settings. Requests for help or the list of ports, and errors, end
/// the program.
[[nodiscard]] Options parseOptions(int argc, char** argv);

} // namespace secapp
