#include "fuzz.h"

#include "firmware/firmware.h"

#include <algorithm>
#include <sstream>
#include <vector>

using namespace fuzzing;
using vqxsim::Firmware;
using vqxsim::RequestKind;

namespace {

/// In the input: the host is silent for longer than the firmware waits.
constexpr char silenceByte = '\x01';

/// The most bytes of an answer besides its request, which it may contain twice.
constexpr std::size_t answerRoom = 8192;

/// More requests in one input only cost time.
constexpr int requestLimit = 60;

using Bytes = std::vector<std::uint8_t>;

/// The contents that a host can change. Odd sizes show whether bytes after the end of a memory are used.
struct State {
    std::vector<Bytes> regions;
    Bytes buffer;
    bool operator==(const State&) const = default;
};

/// The content, read without the functions that mark blocks as touched.
Bytes contentOf(const vqxsim::SparseMemory& memory) {
    constexpr std::size_t blockSize = 0x10000;
    constexpr std::size_t pageSize = 4096;
    Bytes content(static_cast<std::size_t>(memory.size));
    for (std::size_t start = 0; start < content.size(); start += blockSize) {
        const std::size_t length = std::min(blockSize, content.size() - start);
        if (memory.touched[start / blockSize])
            std::copy_n(memory.bytes.get() + start, length, content.data() + start);
        else
            std::fill_n(content.data() + start, length, memory.fillValue[start / blockSize]);
    }
    const std::uint8_t* const end = memory.bytes.get() + content.size();
    const std::size_t padding = (pageSize - content.size() % pageSize) % pageSize;
    require(std::all_of(end, end + padding, [](std::uint8_t byte) { return byte == 0; }),
            "the bytes after a memory are untouched");
    return content;
}

State stateOf(const Firmware& firmware) {
    State state{.regions = {}, .buffer = contentOf(firmware.buffer)};
    for (const vqxsim::Region& region : firmware.flash.regions)
        state.regions.push_back(region.memory
                                    ? contentOf(*region.memory)
                                    : Bytes(static_cast<std::size_t>(region.spec.size), region.spec.blank));
    return state;
}

bool succeeded(const vqxsim::Answer& reply) {
    return reply.text == "VQX_OK\r\n" || reply.text.ends_with("\nVQX_OK\r\n");
}

/// The answer to the request's arguments under another command word.
bool doesToo(Firmware& firmware, std::string_view command, const vqxsim::Request& request) {
    vqxsim::Request other = request;
    other.text = std::string(command) + request.text.substr(vqxsim::requestWord(request).size());
    return succeeded(vqxsim::execute(firmware, other));
}

/// Programming only moves bits away from their blank value.
bool onlyProgrammed(const Firmware& firmware, const State& before, const State& after) {
    for (std::size_t i = 0; i < before.regions.size(); ++i) {
        const std::uint8_t blank = firmware.flash.regions[i].spec.blank;
        const auto keepsBits = [=](std::uint8_t old, std::uint8_t now) {
            return ((old ^ blank) & ~(now ^ blank)) == 0;
        };
        if (!std::equal(before.regions[i].begin(), before.regions[i].end(), after.regions[i].begin(),
                        keepsBits))
            return false;
    }
    return true;
}

/// The transfer buffer after a request that writes to it.
Bytes stagedBuffer(const vqxsim::Request& request, Bytes buffer) {
    std::vector<std::uint64_t> numbers;
    std::istringstream words(request.text);
    for (std::string word; request.kind == RequestKind::line && words >> word;)
        numbers.push_back(vqxsim::parseHexadecimal(word).value_or(0));
    const auto put = [&](std::uint64_t offset, std::uint64_t byte) {
        require(offset < buffer.size(), "what is staged lies in the buffer");
        buffer[static_cast<std::size_t>(offset)] = static_cast<std::uint8_t>(byte);
    };
    const std::string_view word = vqxsim::requestWord(request);
    for (std::size_t i = 0; word == "burst" && i < request.text.size(); ++i)
        put(request.header.offset + i, static_cast<std::uint8_t>(request.text[i]));
    for (std::size_t i = 0; word == "dataSet" && i < numbers[1] * 4; ++i)
        put(i, numbers[2]);
    for (std::size_t i = 0; word == "dataPacket" && i < (numbers.size() - 2) * 4; ++i)
        put(numbers[1] + i, numbers[2 + i / 4] >> (8 * (i % 4)));
    return buffer;
}

void checkChange(Firmware& firmware, const vqxsim::Request& request, bool success, const State& before,
                 const State& after) {
    const std::string_view word = vqxsim::requestWord(request);
    const bool stages = word == "dataSet" || word == "dataPacket" || word == "burst";
    const bool programs = word == "programPage";
    const bool erases = word == "eraseFlash";
    require((stages && success) || before.buffer == after.buffer, "what changes the transfer buffer");
    require(programs || (erases && success) || before.regions == after.regions, "what changes the flash");
    require(!programs || onlyProgrammed(firmware, before, after), "programming never erases");
    if (programs && success)
        require(doesToo(firmware, "verifyPage", request), "programmed pages verify");
    if (erases && success)
        require(doesToo(firmware, "blankCheck", request), "an erased region is blank");
    require(!stages || !success || after.buffer == stagedBuffer(request, before.buffer),
            "what lands in the buffer");
}

void answer(Firmware& firmware, const vqxsim::Request& request, State& state) {
    const vqxsim::Answer reply = vqxsim::execute(firmware, request);
    require(reply.text.size() <= 2 * request.text.size() + answerRoom, "an answer is bounded");
    const std::size_t lineEnd = reply.text.rfind('\n', reply.text.size() - 2);
    const std::string status = reply.text.substr(lineEnd == std::string::npos ? 0 : lineEnd + 1);
    require(status == "VQX_OK\r\n" || (status.starts_with("VQX_ERROR ") && status.ends_with("\r\n")),
            "an answer ends with a status line");
    State after = stateOf(firmware);
    checkChange(firmware, request, succeeded(reply), state, after);
    state = std::move(after);
}

void startFuzzed(Firmware& firmware) {
    // Each memory: name, base, size, page, buffer, blank.
    const vqxsim::FirmwareConfig config{.regions = {{"FLASH", 0x1000, 1000, 8, 512, 0xFF},
                                                    {"MORVI", 0x2000, 700, 7, 64, 0x00},
                                                    {"ODD", 0xFFFFFF00, 0x180, 0, 0x8001, 0x5A},
                                                    {"FAR", 0x100000000, 3, 1, 0, 0xFF}},
                                        .directory = {}};
    require(!vqxsim::startFirmware(firmware, config), "the firmware starts");
}

} // namespace

/// The simulated firmware receives any bytes. Checks its memory and its answer after each request.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Firmware firmware;
    startFuzzed(firmware);
    State state = stateOf(firmware);
    std::string_view rest = textOf(data, size);
    int requests = 0;
    while (!rest.empty() && requests < requestLimit) {
        std::optional<vqxsim::Request> request;
        if (rest.front() == silenceByte) {
            rest.remove_prefix(1);
            if (vqxsim::silenceTimeout(firmware))
                request = vqxsim::requestAfterSilence(firmware);
        } else {
            const std::string_view arriving = rest.substr(0, rest.find(silenceByte));
            const std::size_t taken = vqxsim::collectRequest(firmware, arriving, request);
            require(taken > 0 && taken <= arriving.size(), "the firmware takes of what arrives");
            rest.remove_prefix(taken);
        }
        if (request) {
            ++requests;
            answer(firmware, *request, state);
        }
        require(firmware.line.size() <= vqxsim::lineLimit + 1, "an arriving line is bounded");
    }
    return 0;
}
