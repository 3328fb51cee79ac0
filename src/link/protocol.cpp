#include "link/protocol.h"

#include "link/connection.h"
#include "link/serial.h"
#include "link/wire.h"

#include <utility>

namespace secapp {
namespace {

constexpr int notSent = -1;

int ensureOpen(HandlerData& record) {
    return record.port->handle == 0 ? openSerialDevice(record) : 0;
}

/// Writes a line to the open port. After an incomplete line the target waits for the rest.
int sendOnOpenPort(const HandlerData& record, std::string_view line) {
    record.port->connectionError = sendLine(record, line, writeTimeout());
    return connectionFailure(record) ? notSent : static_cast<int>(line.size());
}

} // namespace

ErrorText sendCommand(HandlerData& record, std::string_view text) {
    if (ErrorText error = refuseLineBreaks(text))
        return error;
    writeLine(record, text);
    return getResponse(record);
}

Result<std::string> ask(HandlerData& record, std::string_view text) {
    const std::size_t start = record.response.size();
    if (ErrorText error = sendCommand(record, text))
        return error;
    return record.response.substr(start);
}

Result<HandlerData> quietRecord(HandlerData& record) {
    if (ErrorText error = openPort(record))
        return error;
    return newHandlerData(record, record.echoFlags);
}

ErrorText getResponse(HandlerData& record) {
    return getTimedResponse(record, getTimeoutms());
}

ErrorText connectionFailure(const HandlerData& record) {
    return record.port->connectionError;
}

ErrorText openPort(HandlerData& record) {
    if (ensureOpen(record) == 0)
        return std::nullopt;
    reportEarlierFailure();
    return serial_get_error(*record.port);
}

int writeLineRaw(HandlerData& record, std::string_view text) {
    if (connectionFailure(record))
        return notSent;
    if (const int failure = ensureOpen(record))
        return failure;
    return sendOnOpenPort(record, text);
}

ErrorText writeRawFully(const HandlerData& record, std::span<const std::uint8_t> bytes) {
    if (ErrorText error = writeAll(record, bytes, writeTimeout()))
        record.port->connectionError = std::move(error);
    return connectionFailure(record);
}

ErrorText refuseLineBreaks(std::string_view text) {
    if (text.find_first_of("\r\n") == std::string_view::npos)
        return std::nullopt;
    return formatError("A command for the target cannot hold a line break");
}

int writeLine(HandlerData& record, std::string_view text) {
    return writeLineExt(record, text, "=", "\r");
}

int writeLineExt(HandlerData& record, std::string_view text, std::string_view prefix,
                 std::string_view suffix) {
    if (connectionFailure(record))
        return notSent;
    const std::string line = composeLine(record, text, prefix, suffix);
    if (const int failure = ensureOpen(record))
        return failure;
    return sendOnOpenPort(record, line);
}

ErrorText getTimedResponse(HandlerData& record, int timeout) {
    if (ensureOpen(record) != 0)
        return serial_get_error(*record.port);
    if (ErrorText failure = connectionFailure(record))
        return failure;
    const Answer answer = collectAnswer(record, timeout);
    if (answer.end == AnswerEnd::ok)
        return std::nullopt;
    if (answer.end == AnswerEnd::lost)
        record.port->connectionError = answer.text;
    return answer.text;
}

} // namespace secapp
