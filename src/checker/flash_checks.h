#pragma once

#include "checker/inspection.h"

#include <cstdint>

namespace secapp {

/// The words that "program" and "verify" use. Missing ones are empty.
struct ProgramArguments {
    /// The last option for the width, and the last one for the check word.
    std::string widthOption;
    std::string checksumOption;
    /// In bytes.
    std::uint32_t width = 4;
    /// A file or a value.
    std::string data;
    bool isFile = false;
    std::string addresses;
    /// Empty for a file, even if a word follows the addresses.
    std::string length;
};

/// Whether the command is "program", "verify", "erase" or "blankCheck".
[[nodiscard]] bool isFlashCommand(const CheckedCommand& command);

inline constexpr std::string_view oneAddressWord = "write the addresses as one word, without spaces";

/// Whether a space splits an address or a list of them, so that `following` is the next part.
[[nodiscard]] bool isSplit(std::string_view addresses, std::string_view following);

/// The index of the first word after the options.
[[nodiscard]] std::size_t firstArgument(const CheckedCommand& command);

/// Empty for other commands, and without data.
[[nodiscard]] std::optional<ProgramArguments> parseProgramArguments(const CheckedCommand& command);

/// Whether the command can read a file.
[[nodiscard]] bool namesFile(const CheckedCommand& command);

/// The file that the command reads, if any.
[[nodiscard]] std::optional<std::string> fileOf(const CheckedCommand& command);

/// Returns the properties of a file; the first time, reports if it cannot be programmed.
[[nodiscard]] const ImageFile& checkImage(Inspection& inspection, const CheckedCommand& command,
                                          const std::string& name);

/// Checks options, data, addresses and length of the flash commands, and the file of "download".
void checkFlashCommand(Inspection& inspection, const CheckedCommand& command);

} // namespace secapp
