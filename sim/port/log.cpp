#include "port/log.h"

#include "firmware/firmware.h"

#include <algorithm>

namespace vqxsim {

namespace {

/// Characters of one line that are shown.
constexpr std::size_t shownLength = 8192;

std::string requestText(const Request& request) {
    switch (request.kind) {
    case RequestKind::line:
        return request.text;
    case RequestKind::burst:
        return formatText("[burst of 0x%zx bytes, checksum 0x%08x]", request.text.size(),
                          burstChecksum(request.text));
    case RequestKind::longLine:
        return "[line too long] " + request.text.substr(0, 64);
    case RequestKind::brokenBurst:
        break;
    }
    return formatText("[burst broken off after 0x%zx bytes]", request.text.size());
}

} // namespace

ErrorText openLog(Log& log, const std::string& path) {
    log.file.reset(std::fopen(path.c_str(), "we"));
    log.start = std::chrono::steady_clock::now();
    return log.file ? std::nullopt : systemError(path);
}

void logLine(Log& log, char direction, std::string_view text, std::uint64_t exchange) {
    if (!log.file)
        return;
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - log.start;
    const std::string number = exchange > 0 ? std::to_string(exchange) + " " : "";
    std::fprintf(log.file.get(), "%.6f %s%c %s\n", time.count(), number.c_str(), direction,
                 printable(text, shownLength).c_str());
    log.unflushed = true;
}

void logOutcome(Log& log, const Outcome& outcome) {
    if (!log.file)
        return;
    const std::uint64_t number = outcome.exchange.number; // 0: no request was complete
    if (number > 0)
        logLine(log, '>', requestText(outcome.request), number);
    for (const std::string& note : outcome.exchange.notes)
        logLine(log, '!', number == 0 ? note : formatText("exchange %llu, %s", shown(number), note.c_str()));
}

void logTransmission(Log& log, const Transmission& transmission) {
    if (!log.file)
        return;
    if (transmission.total != transmission.bytes.size()) {
        logLine(log, '<', formatText("[flood of %llu bytes]", shown(transmission.sent)));
        return;
    }
    const std::string_view text = transmission.bytes;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find("\r\n", start), text.size());
        logLine(log, '<', text.substr(start, end - start));
        start = end + 2;
    }
}

ErrorText flushLog(Log& log) {
    log.unflushed = false;
    if (log.file && (std::fflush(log.file.get()) != 0 || std::ferror(log.file.get()) != 0))
        return systemError("log");
    return std::nullopt;
}

} // namespace vqxsim
