#include "transfer/encoders.h"

#include "link/protocol.h"
#include "support/streams.h"
#include "transfer/words.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace secapp {
namespace {

/// By the number of bytes in a partial last word (0 to 3): a mask of the missing bytes.
constexpr std::array<std::uint32_t, wordSize> raggedMask = {0x00000000, 0xFFFFFF00, 0xFFFF0000, 0xFF000000};

struct Encoding {
    std::int32_t bufferEncoderAlgorithmIndex = 1;
    std::uint32_t fWordsPerLine = 32;
} encoding;

void appendHex(std::string& line, std::uint32_t word) {
    std::array<char, 8> digits{};
    const auto end = std::to_chars(digits.begin(), digits.end(), word, 16).ptr;
    line += ' ';
    line.append(digits.begin(), end);
}

/// The word at the start of the data; missing bytes are the fill byte.
std::uint32_t paddedWord(std::span<const std::uint8_t> data, std::uint8_t fillByte) {
    std::array<std::uint8_t, wordSize> bytes{};
    bytes.fill(fillByte);
    std::copy_n(data.begin(), std::min(data.size(), wordSize), bytes.begin());
    return wordAt(bytes, 0);
}

ErrorText hexEncoder(HandlerData& record, const TransferDescriptor& descriptor, std::uint32_t& bytesStaged,
                     std::span<const std::uint8_t> chunk) {
    std::string line;
    while (!chunk.empty()) {
        line = "dataPacket";
        appendHex(line, bytesStaged % descriptor.bufferSize);
        for (std::uint32_t words = 0; words < encoding.fWordsPerLine && !chunk.empty(); ++words) {
            const std::size_t bytes = std::min(chunk.size(), wordSize);
            appendHex(line, paddedWord(chunk, descriptor.fillByte));
            bytesStaged += static_cast<std::uint32_t>(bytes);
            chunk = chunk.subspan(bytes);
        }
        if (ErrorText error = sendCommand(record, line))
            return error;
    }
    return std::nullopt;
}

ErrorText sendBurst(HandlerData& record, std::size_t offset, std::span<const std::uint8_t> burst) {
    const std::string header = formatText("databurst %zx %zx %x", burst.size(), offset, calcChecksum(burst));
    if (ErrorText error = sendCommand(record, header))
        return error;
    if (ErrorText error = writeRawFully(record, burst))
        return error;
    return getResponse(record);
}

ErrorText binaryEncoder(HandlerData& record, const TransferDescriptor& descriptor, std::uint32_t& bytesStaged,
                        std::span<const std::uint8_t> chunk) {
    for (std::size_t sent = 0; sent < chunk.size(); sent += descriptor.burstSize) {
        const std::size_t length = std::min<std::size_t>(descriptor.burstSize, chunk.size() - sent);
        if (ErrorText error = sendBurst(record, sent, chunk.subspan(sent, length)))
            return error;
    }
    bytesStaged += static_cast<std::uint32_t>(chunk.size());
    return std::nullopt;
}

} // namespace

const std::array<BufferEncoder, 2> bufferEncoder = {{
    {"Hex Encoder", hexEncoder},
    {"Binary Encoder", binaryEncoder},
}};

void setBufferEncodeAlgorithm(std::uint32_t index) {
    if (index >= bufferEncoder.size()) {
        writeText(stderr, "Invalid encoder algorithm index\n");
        std::exit(-1);
    }
    encoding.bufferEncoderAlgorithmIndex = static_cast<std::int32_t>(index);
}

const BufferEncoder& getBufferEncoder() {
    return bufferEncoder[static_cast<std::size_t>(encoding.bufferEncoderAlgorithmIndex)];
}

void listEncoderAlgorithms() {
    for (std::size_t index = 0; index < bufferEncoder.size(); ++index) {
        const BufferEncoder& encoder = bufferEncoder[index];
        const char* mark = &encoder == &getBufferEncoder() ? "[default]" : "";
        writeText(stdout, formatText("\t\t\t%d - %s %s\n", static_cast<int>(index), encoder.name, mark));
    }
}

std::uint32_t calcChecksum(std::span<const std::uint8_t> data) {
    std::uint32_t sum = 0;
    const std::size_t words = data.size() / wordSize;
    for (std::size_t index = 0; index < words; ++index)
        sum += wordAt(data, index);
    if (const std::size_t ragged = data.size() % wordSize; ragged != 0)
        sum += paddedWord(data.subspan(words * wordSize), 0) | raggedMask[ragged];
    return sum;
}

std::uint32_t getWordsPerLine() {
    return encoding.fWordsPerLine;
}

void setWordsPerLine(std::uint32_t words) {
    encoding.fWordsPerLine = words;
}

} // namespace secapp
