#pragma once

#include "port/link.h"

#include <cstdio>
#include <memory>

namespace vqxsim {

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

/// The record of a conversation, one line per line of text: seconds since the start, of a request the number
/// of its exchange, a direction and the text. Directions are ">" from the host, "<" to the host, "!" for
/// faults and
/// "#" for the port.
struct Log {
    std::unique_ptr<std::FILE, CloseFile> file; ///< none: nothing is kept
    TimePoint start;
    bool unflushed = false;
};

[[nodiscard]] ErrorText openLog(Log& log, const std::string& path);

/// Notes one line, with the number of the exchange unless that is 0.
void logLine(Log& log, char direction, std::string_view text, std::uint64_t exchange = 0);

/// Notes a request and what the faults did to its exchange.
void logOutcome(Log& log, const Outcome& outcome);

/// Notes bytes that went to the host.
void logTransmission(Log& log, const Transmission& transmission);

/// Makes what was noted visible to readers of the file. Fails when it could not be written.
[[nodiscard]] ErrorText flushLog(Log& log);

} // namespace vqxsim
