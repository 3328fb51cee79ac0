#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// What every fuzz target is: runs one input. Each room beside this one that defines it is one target; a
/// fuzzer or the replay of the corpus drives it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace fuzzing {

/// Ends the program with the text when something that must hold does not.
void require(bool holds, const char* what);

/// Sends what the tool writes to its standard output and standard error to nowhere; reports of the
/// sanitizers, of the fuzzer and of `require` still appear.
void silenceOutput();

[[nodiscard]] inline std::string_view textOf(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

/// A number as the tool must read it, worked out digit by digit.
struct Number {
    std::uint32_t value = 0;
    bool isWhole = false; ///< nothing but the number was there, and it fits
};
[[nodiscard]] Number referenceNumber(std::string_view text);

/// The text in small letters, and without white space at its ends.
[[nodiscard]] std::string lowered(std::string_view text);
[[nodiscard]] std::string stripped(std::string_view text);

} // namespace fuzzing
