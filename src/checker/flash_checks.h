#pragma once

#include "checker/inspection.h"

#include <cstdint>

namespace secapp {

/// The words of a "program" or "verify" that have an effect.
struct FlashWords {
    /// The option that gives a width; empty without one.
    std::string widthOption;
    /// Bytes.
    std::uint32_t width = 4;
    std::string data;
    bool isFile = false;
    std::string addresses;
    /// Only of a value; empty without one.
    std::string length;
};

inline constexpr std::string_view oneAddressWord = "addresses are one word";

/// Whether a blank stands in the middle of an expression or a list of them.
[[nodiscard]] bool isSplit(std::string_view addresses, std::string_view nextWord);

/// None of other commands, or when the address is missing.
[[nodiscard]] std::optional<FlashWords> readFlashWords(const CheckedCommand& command);

/// Whether the command is one that can name a file.
[[nodiscard]] bool namesFile(const CheckedCommand& command);

/// The file that the command reads.
[[nodiscard]] std::optional<std::string> fileOf(const CheckedCommand& command);

/// A file that is read as a value, a width without effect, a value or length that does not suit the width.
void checkFlashData(Inspection& inspection, const CheckedCommand& command);

/// Notes what "program" programs, and strikes out what "verify" verifies.
void followVerification(Inspection& inspection, const CheckedCommand& command);

/// Reports what no "verify" follows, at the end of the script.
void reportUnverified(Inspection& inspection);

} // namespace secapp
