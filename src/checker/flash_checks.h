#pragma once

#include "checker/inspection.h"

#include <cstdint>

namespace secapp {

/// The words of a "program" or "verify" that have an effect.
struct ProgramArguments {
    /// The options that give the width and the check word; empty without one.
    std::string widthOption;
    std::string checksumOption;
    /// Bytes.
    std::uint32_t width = 4;
    std::string data;
    bool isFile = false;
    /// Empty when they are missing.
    std::string addresses;
    /// Empty without one.
    std::string length;
};

/// Whether it is one of the commands with addresses.
[[nodiscard]] bool isFlashCommand(const CheckedCommand& command);

inline constexpr std::string_view oneAddressWord = "write the addresses as one word, without spaces";

/// Whether a space was written within an expression or a list of them.
[[nodiscard]] bool isSplit(std::string_view addresses, std::string_view nextWord);

/// The place of the first word after the options.
[[nodiscard]] std::size_t firstArgument(const CheckedCommand& command);

/// None for other commands, and without data.
[[nodiscard]] std::optional<ProgramArguments> parseProgramArguments(const CheckedCommand& command);

/// Whether the command is one that can name a file.
[[nodiscard]] bool namesFile(const CheckedCommand& command);

/// The file that the command reads.
[[nodiscard]] std::optional<std::string> fileOf(const CheckedCommand& command);

/// What is known of a file; the first time, reports that it cannot be programmed.
[[nodiscard]] const ImageFile& checkImage(Inspection& inspection, const CheckedCommand& command,
                                          const std::string& name);

/// The options, the data, the addresses and the length of "program", "verify", "erase", "blankCheck" and
/// "download".
void checkFlashCommand(Inspection& inspection, const CheckedCommand& command);

} // namespace secapp
