#pragma once

#include "link/serial.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace secapp {

struct HandlerData;

/// Receives a line of the target's output or a message of `secapp`; with `addNewline` a newline follows it.
using OutputHandler = void (*)(HandlerData& record, std::string_view text, bool addNewline);

/// The record that every command works on. One lives for the run; each command gets a new one made from it.
/// All of them share the port.
struct HandlerData {
    /// Never null.
    std::shared_ptr<Port> port = std::make_shared<Port>();
    /// The answer lines collected on this record, each followed by a newline.
    std::string response;
    /// `ECHO_*` bits.
    std::uint32_t echoFlags = 0;
    /// May be null: then nothing is shown.
    OutputHandler outputHandler = nullptr;
};

/// A fresh record with the given echo flags that shares the port of `from`.
[[nodiscard]] inline HandlerData newHandlerData(const HandlerData& from, std::uint32_t echoFlags) {
    return {.port = from.port, .response = {}, .echoFlags = echoFlags, .outputHandler = nullptr};
}

/// Path of the record's serial device, null when none is known.
[[nodiscard]] inline const char* deviceName(const HandlerData& record) {
    return record.port->deviceName ? record.port->deviceName->c_str() : nullptr;
}

/// Hands a text of `secapp` to the record's output handler, if it has one, to be written unchanged.
inline void show(HandlerData& record, std::string_view text) {
    if (record.outputHandler != nullptr)
        record.outputHandler(record, text, false);
}

} // namespace secapp
