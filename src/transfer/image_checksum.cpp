#include "transfer/image_checksum.h"

#include "link/protocol.h"
#include "support/echo.h"
#include "transfer/records.h"
#include "transfer/words.h"

#include <cstdlib>

namespace secapp {
namespace {

constexpr std::size_t checkWord = 7;

} // namespace

std::uint32_t calcTargetChecksum(std::span<const std::uint8_t> image) {
    std::uint32_t sum = 0;
    for (std::size_t index = 0; index < checkWord; ++index)
        sum += wordAt(image, index);
    return 0 - sum;
}

ErrorText readWord(HandlerData& record, std::uint32_t address, std::uint32_t& value) {
    if (ErrorText error = exchange(record, formatText("readWord 0x%x", address)))
        return error;
    const char* text = record.response.c_str();
    char* end = nullptr;
    const unsigned long number = std::strtoul(text, &end, 16);
    if (end == text)
        return formatError("No value in the answer to readWord at 0x%x", address);
    value = static_cast<std::uint32_t>(number);
    return std::nullopt;
}

ErrorText patchChecksum(HandlerData& record, std::uint32_t checksumMode, std::uint32_t address,
                        std::span<std::uint8_t> chunk) {
    std::uint32_t word = 0;
    if (checksumMode == checksumCalculate) {
        word = calcTargetChecksum(chunk);
        debug_print("Calculated checksum as 0x%x (was 0x%lx)\n", word,
                    static_cast<unsigned long>(wordAt(chunk, checkWord)));
    } else if (checksumMode == checksumFromTarget) {
        const auto wordAddress = static_cast<std::uint32_t>(address + checkWord * wordSize);
        if (ErrorText error = readWord(record, wordAddress, word))
            return error;
        debug_print("Read checksum from 0x%x as 0x%x\n", wordAddress, word);
    } else {
        return std::nullopt;
    }
    setWordAt(chunk, checkWord, word);
    return std::nullopt;
}

} // namespace secapp
