#include "link/protocol.h"

#include "link/connection.h"
#include "link/serial.h"
#include "link/timing.h"
#include "link/wire.h"

namespace secapp {
namespace {

int ensureOpen(HandlerData& record) {
    return record.serialHandle == 0 ? openSerialDevice(record) : 0;
}

} // namespace

ErrorText openPort(HandlerData& record) {
    // A second try is refused at once and gives the text.
    return ensureOpen(record) == 0 ? std::nullopt : getResponse(record);
}

int writeLine(HandlerData& record, std::string_view text) {
    return writeLineExt(record, text, "=", "\r");
}

int writeLineExt(HandlerData& record, std::string_view text, std::string_view prefix,
                 std::string_view suffix) {
    const std::string line = composeLine(record, text, prefix, suffix);
    if (const int failure = ensureOpen(record))
        return failure;
    return sendLine(record, line, writePatience());
}

int writeLineRaw(HandlerData& record, std::string_view text) {
    if (const int failure = ensureOpen(record))
        return failure;
    return sendLine(record, text, writePatience());
}

ErrorText writeRawFully(const HandlerData& record, std::span<const std::uint8_t> bytes) {
    if (writeAll(record, bytes, writePatience()) > 0)
        return std::nullopt;
    return serial_get_error();
}

ErrorText getTimedResponse(HandlerData& record, int timeout) {
    if (ensureOpen(record) != 0)
        return serial_get_error();
    return collectAnswer(record, timeout);
}

ErrorText getResponse(HandlerData& record) {
    return getTimedResponse(record, getTimeoutms());
}

ErrorText refuseLineBreaks(std::string_view text) {
    if (text.find_first_of("\r\n") == std::string_view::npos)
        return std::nullopt;
    return formatError("A command for the target cannot hold a line break");
}

ErrorText exchange(HandlerData& record, std::string_view text) {
    if (ErrorText error = refuseLineBreaks(text))
        return error;
    writeLine(record, text);
    return getResponse(record);
}

} // namespace secapp
