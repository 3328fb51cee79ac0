#pragma once

#include "port/link.h"

#include <cstdio>
#include <memory>

namespace vqxsim {

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

/// The log of a conversation. A line contains the seconds since the start, for a request the number of its
/// exchange, a sign and a text: ">" from the host, "<" to the host, "!" fault, "#" port.
struct Log {
    std::unique_ptr<std::FILE, CloseFile> file; ///< null: no log
    TimePoint start;
    bool unflushed = false;
};

[[nodiscard]] ErrorText openLog(Log& log, const std::string& path);

/// Writes one line, with the number of the exchange unless that is 0.
void logLine(Log& log, char direction, std::string_view text, std::uint64_t exchange = 0);

/// Writes a request and the effects of the faults on its exchange.
void logOutcome(Log& log, const Outcome& outcome);

/// Writes the bytes that were sent to the host.
void logTransmission(Log& log, const Transmission& transmission);

/// Flushes the file. Fails if it could not be written.
[[nodiscard]] ErrorText flushLog(Log& log);

} // namespace vqxsim
