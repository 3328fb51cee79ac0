#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace secapp {

/// The options of the command line, except for the settings of other modules, which the option parser sets
/// itself.
struct Options {
    /// The device of `-d`; null when none was named. Points into the arguments.
    const char* deviceName = nullptr;
    /// The script file of `-s`.
    std::optional<std::string> scriptPath;
    /// `-t`: the script comes from standard input.
    bool fromTerminal = false;
    /// False with `-b`.
    bool batchMode = true;
    std::uint32_t echoFlags = 0;
    /// The words after the options, each followed by a space.
    std::optional<std::string> immediateLine;
};

/// Reads the command line and applies its settings. Help, the list of ports, and errors end the program.
[[nodiscard]] Options parseOptions(int argc, char** argv);

} // namespace secapp
