#pragma once

#include "commands/handler.h"

namespace secapp {

/// "echo text": writes the text to standard error, whatever the echo flags.
[[nodiscard]] ErrorText echoHandler(HandlerData& record, std::string_view text, std::string_view word,
                                    const HandlerEntry* entry);

/// "delay microseconds".
[[nodiscard]] ErrorText delayHandler(HandlerData& record, std::string_view text, std::string_view word,
                                     const HandlerEntry* entry);

/// "pause on|off": switches the confirmation of commands; "pause [message]": waits for a line on standard
/// input.
[[nodiscard]] ErrorText pauseHandler(HandlerData& record, std::string_view text, std::string_view word,
                                     const HandlerEntry* entry);

/// "timer start|on|print|stop|off".
[[nodiscard]] ErrorText timerHandler(HandlerData& record, std::string_view text, std::string_view word,
                                     const HandlerEntry* entry);

} // namespace secapp
