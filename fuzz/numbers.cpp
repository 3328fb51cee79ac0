#include "fuzz.h"

#include "support/numbers.h"

using namespace fuzzing;

/// Any text is read as a number, and held against a reading digit by digit.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text = textOf(data, size);
    const Number expected = referenceNumber(text);
    std::uint32_t value = ~expected.value;
    const secapp::ErrorText error = secapp::decode(text, value);
    require(value == expected.value, "the value of a number");
    require(!error == expected.isWhole, "which numbers are refused");
    require(!error || *error == expected.error, "the message for a bad number");

    value = ~expected.value;
    require(!secapp::decodeFull(text, value, false), "a scan never fails");
    require(value == expected.value, "the value of a scanned number");
    return 0;
}
