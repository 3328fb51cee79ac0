#include "transfer/image_checksum.h"

#include "link/protocol.h"
#include "support/echo.h"
#include "transfer/records.h"
#include "transfer/words.h"

#include <algorithm>
#include <array>
#include <cinttypes>
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
    if (ErrorText error = sendCommand(record, formatText("readWord 0x%x", address)))
        return error;
    const char* text = record.response.c_str();
    char* end = nullptr;
    const unsigned long long number = std::strtoull(text, &end, 16);
    if (end == text)
        return formatError("No value in the answer to readWord at 0x%x", address);
    value = static_cast<std::uint32_t>(number);
    return std::nullopt;
}

ErrorText checkChunkSize(std::uint32_t chunkSize, const std::optional<std::int64_t>& imageSize) {
    constexpr auto needed = static_cast<std::int64_t>(checkedImageSize);
    if (chunkSize >= needed || imageSize.value_or(needed) < needed)
        return std::nullopt;
    return formatError("The check word of an image does not fit a transfer buffer of %" PRIu32 " bytes",
                       chunkSize);
}

ErrorText patchChecksum(HandlerData& record, std::uint32_t checksumMode, std::uint32_t address,
                        std::span<std::uint8_t> chunk) {
    std::array<std::uint8_t, checkedImageSize> image{};
    std::copy_n(chunk.begin(), std::min(chunk.size(), image.size()), image.begin());
    std::uint32_t word = 0;
    if (checksumMode == checksumCalculate) {
        word = calcTargetChecksum(image);
        debug_print("Calculated checksum as 0x%x (was 0x%x)\n", word, wordAt(image, checkWord));
    } else if (checksumMode == checksumFromTarget) {
        const auto wordAddress = static_cast<std::uint32_t>(address + checkWord * wordSize);
        if (ErrorText error = readWord(record, wordAddress, word))
            return error;
        debug_print("Read checksum from 0x%x as 0x%x\n", wordAddress, word);
    } else {
        return std::nullopt;
    }
    if (chunk.size() >= checkedImageSize)
        setWordAt(chunk, checkWord, word);
    return std::nullopt;
}

} // namespace secapp
