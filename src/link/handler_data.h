#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include <termios.h>

namespace secapp {

struct HandlerData;

/// Receives a line of the target's output or a message of the tool's own; with `addNewline` a newline belongs
/// behind it.
using OutputHandler = void (*)(HandlerData& record, std::string_view text, bool addNewline);

/// The record that every command works on. One lives for the run and carries the port from command to
/// command; each command gets a record of its own made from it.
struct HandlerData {
    /// Descriptor of the open port, 0 while it is not open.
    std::int32_t serialHandle = 0;
    /// Path of the serial device, null when none is known; owned by whoever made the first record.
    const char* deviceName = nullptr;
    /// The port's settings as found at its opening, shared by all records of the run.
    std::shared_ptr<termios> savedSettings;
    /// The answer lines collected on this record, each followed by a newline.
    std::string response;
    /// `ECHO_*` bits.
    std::uint32_t echoFlags = 0;
    /// Non-zero once gaining control of the target has failed: the port is not opened again.
    std::int32_t linkError = 0;
    /// May be null: then nothing is shown.
    OutputHandler outputHandler = nullptr;
};

/// A fresh record with the given echo flags that shares the port of `from`.
[[nodiscard]] inline HandlerData newHandlerData(const HandlerData& from, std::uint32_t echoFlags) {
    HandlerData record;
    record.serialHandle = from.serialHandle;
    record.deviceName = from.deviceName;
    record.savedSettings = from.savedSettings;
    record.echoFlags = echoFlags;
    return record;
}

/// Hands a text of the tool's own to the record's output handler, if it has one, to be written as it stands.
inline void show(HandlerData& record, std::string_view text) {
    if (record.outputHandler != nullptr)
        record.outputHandler(record, text, false);
}

} // namespace secapp
