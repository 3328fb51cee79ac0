#include "fuzz.h"

#include "link/protocol.h"
#include "link/wire.h"
#include "transfer/regions.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>

#include <unistd.h>

using namespace fuzzing;

namespace {

/// A pipe accepts no more in one write.
constexpr std::size_t pipeRoom = 60000;

std::string shown;

void keepShown(secapp::HandlerData& /*record*/, std::string_view text, bool addNewline) {
    shown.append(text).append(addNewline ? "\n" : "");
}

/// The descriptor of a port that sends these bytes and then vanishes.
int portWith(std::string_view bytes) {
    int ends[2] = {-1, -1};
    require(::pipe(ends) == 0, "a pipe can be made");
    const auto length = static_cast<ssize_t>(bytes.size());
    require(::write(ends[1], bytes.data(), bytes.size()) == length, "a pipe takes the bytes");
    ::close(ends[1]);
    return ends[0];
}

/// Removes the next line from the bytes, or the first piece of a line over the limit. Empty without the end
/// of the line.
std::optional<std::string> takeLine(std::string_view& bytes) {
    constexpr auto limit = static_cast<std::size_t>(secapp::answerLineLimit);
    const std::size_t end = bytes.find_first_of(std::string_view("\r\n\0", 3));
    if (std::min(end, bytes.size()) >= limit) {
        const std::string line(bytes.substr(0, limit));
        bytes.remove_prefix(limit);
        return line;
    }
    if (end == std::string_view::npos)
        return std::nullopt;
    const std::string line(bytes.substr(0, end));
    bytes.remove_prefix(end + 1);
    return line;
}

/// Reads one answer: its lines go to `kept`. `ended` is set when the bytes end before it does.
secapp::ErrorText takeAnswer(std::string_view& bytes, std::string& kept, bool& ended) {
    while (const std::optional<std::string> whole = takeLine(bytes)) {
        const std::string line = stripped(*whole);
        if (line.substr(0, 6) == "VQX_OK")
            return std::nullopt;
        if (line.empty() || line[0] == '=')
            continue;
        kept += line + "\n";
        const std::string status = lowered(line.substr(0, 9));
        if (status == "vqx_error" || status == "vqx_fatal")
            return stripped(line.substr(9));
    }
    ended = true;
    return std::strerror(EIO);
}

/// Applies a line "key = value" of a list of memories; false when the list ends with it.
bool applyLine(const std::string& line, secapp::FlashList& list) {
    const std::size_t equals = line.find('=');
    const std::string key = lowered(stripped(line.substr(0, equals)));
    if (key == "no flash")
        return false;
    if (equals == std::string::npos)
        return true;
    const std::string rest = line.substr(equals + 1);
    const std::string value = stripped(rest.substr(0, rest.find('=')));
    const std::uint32_t number = referenceNumber(value).value;
    if (key == "number of flash devices")
        list.declaredCount = number;
    if (key == "name")
        list.regions.push_back({.name = value});
    secapp::FlashRegion none;
    secapp::FlashRegion& region = list.regions.empty() ? none : list.regions.back();
    if (key == "base")
        region.base = number;
    if (key == "size")
        region.size = number;
    if (key == "page")
        region.pageSize = number;
    if (key == "buffer")
        region.bufferSize = number;
    if (key == "blank")
        region.blankValue = static_cast<std::uint8_t>(number & 0xFF);
    return true;
}

bool areEqual(const secapp::FlashRegion& a, const secapp::FlashRegion& b) {
    return a.name == b.name && a.base == b.base && a.size == b.size && a.pageSize == b.pageSize &&
           a.bufferSize == b.bufferSize && a.blankValue == b.blankValue;
}

void checkRegions(std::string_view text) {
    secapp::FlashList expected;
    std::string lines(text);
    std::replace(lines.begin(), lines.end(), '\r', '\n');
    for (std::size_t at = 0; at < lines.size();) {
        const std::size_t end = std::min(lines.find('\n', at), lines.size());
        if (!applyLine(lines.substr(at, end - at), expected))
            break;
        at = end + 1;
    }
    if (expected.regions.size() == 1 && expected.declaredCount == 0)
        expected.declaredCount = 1;

    secapp::FlashList list;
    const bool agrees = !secapp::parseFlashList(text, list);
    require(agrees == (expected.regions.size() == expected.declaredCount), "which region lists are refused");
    require(list.declaredCount == expected.declaredCount, "the announced number of regions");
    require(std::equal(list.regions.begin(), list.regions.end(), expected.regions.begin(),
                       expected.regions.end(), areEqual),
            "the regions");
}

} // namespace

/// The target sends any bytes. Reads all answers in them, and the bytes and the kept lines as lists of
/// memories, and compares the results with a second implementation.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    silenceOutput();
    std::string_view rest = textOf(data, std::min(size, pipeRoom));
    checkRegions(rest);

    secapp::HandlerData record;
    record.port->handle = portWith(rest);
    record.outputHandler = keepShown;
    shown.clear();
    std::string kept;
    for (bool ended = false; !ended;) {
        const secapp::ErrorText expected = takeAnswer(rest, kept, ended);
        const secapp::ErrorText error = secapp::getTimedResponse(record, 1000);
        require(error == expected, "how an answer ends");
        require(record.response == kept, "the lines that are kept of an answer");
        require(shown == kept, "the lines that are shown of an answer");
    }
    checkRegions(kept);
    return 0;
}
