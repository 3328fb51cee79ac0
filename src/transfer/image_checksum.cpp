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

/// Its index in the image.
constexpr std::size_t checkWord = 7;

} // namespace

std::uint32_t calcTargetChecksum(std::span<const std::uint8_t> image) {
    std::uint32_t sum = 0;
    for (std::size_t index = 0; index < checkWord; ++index)
        sum += wordAt(image, index);
    return 0 - sum;
}

Result<std::uint32_t> readWord(HandlerData& record, std::uint32_t address) {
    const Result<std::string> answer = ask(record, formatText("readWord 0x%x", address));
    if (!answer)
        return answer.error();
    char* end = nullptr;
    const unsigned long long number = std::strtoull(answer->c_str(), &end, 16);
    if (end == answer->c_str())
        return formatError("No value in the answer to readWord at 0x%x", address);
    return static_cast<std::uint32_t>(number);
}

ErrorText checkChunkSize(std::uint32_t chunkSize, const std::optional<std::int64_t>& imageSize) {
    constexpr auto needed = static_cast<std::int64_t>(checkedImageSize);
    if (chunkSize >= needed || imageSize.value_or(needed) < needed)
        return std::nullopt;
    return formatError("The check word of an image does not fit a transfer buffer of %" PRIu32 " bytes",
                       chunkSize);
}

ErrorText patchChecksum(HandlerData& record, ChecksumMode checksumMode, std::uint32_t address,
                        std::span<std::uint8_t> chunk) {
    std::array<std::uint8_t, checkedImageSize> image{};
    std::copy_n(chunk.begin(), std::min(chunk.size(), image.size()), image.begin());
    std::uint32_t word = 0;
    if (checksumMode == ChecksumMode::calculate) {
        word = calcTargetChecksum(image);
        debug_print("Calculated checksum as 0x%x (was 0x%x)\n", word, wordAt(image, checkWord));
    } else if (checksumMode == ChecksumMode::fromTarget) {
        const auto wordAddress = static_cast<std::uint32_t>(address + checkWord * wordSize);
        const Result<std::uint32_t> found = readWord(record, wordAddress);
        if (!found)
            return found.error();
        word = *found;
        debug_print("Read checksum from 0x%x as 0x%x\n", wordAddress, word);
    } else {
        return std::nullopt;
    }
    if (chunk.size() >= checkedImageSize)
        setWordAt(chunk, checkWord, word);
    return std::nullopt;
}

} // namespace secapp
