#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// Runs one input. Each source file that defines it is one fuzz target; a fuzzer or the replay of the corpus
/// calls it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace fuzzing {

/// Ends the program with the text if the condition is false.
void require(bool holds, const char* what);

/// Discards what secapp writes to standard output and standard error; the reports of the sanitizers, of the
/// fuzzer and of `require` still appear.
void silenceOutput();

[[nodiscard]] inline std::string_view textOf(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

/// A number as secapp must read it.
struct Number {
    std::uint32_t value = 0;
    bool isWhole = false; ///< nothing but the number was there, and it fits
};
[[nodiscard]] Number referenceNumber(std::string_view text);

/// The text in small letters, and without white space at its ends.
[[nodiscard]] std::string lowered(std::string_view text);
[[nodiscard]] std::string stripped(std::string_view text);

} // namespace fuzzing
