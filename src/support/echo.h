#pragma once

#include <cstdint>

namespace secapp {

/// The bits of the echo-flag word: what is shown of a script command and of its exchanges with the target.
inline constexpr std::uint32_t ECHO_NOISY = 0x00000002;
inline constexpr std::uint32_t ECHO_SCRIPT = 0x00000004;
inline constexpr std::uint32_t ECHO_DEBUG = 0x00000008;
inline constexpr std::uint32_t ECHO_TARGET = 0x00000010;
inline constexpr std::uint32_t ECHO_IMMEDIATE = 0x00000020;
inline constexpr std::uint32_t ECHO_COMMAND_TIMER = 0x00000040;
inline constexpr std::uint32_t ECHO_READ_TIMER = 0x00000080;
inline constexpr std::uint32_t ECHO_PORT = 0x00000100;
inline constexpr std::uint32_t ECHO_EXIT = 0x00000200;
inline constexpr std::uint32_t ECHO_BUFFER = 0x00000400;
inline constexpr std::uint32_t ECHO_SLEEP_TIMER = 0x00001000;
inline constexpr std::uint32_t ECHO_SPARE_1 = 0x00002000;
inline constexpr std::uint32_t ECHO_SPARE_2 = 0x00004000;
inline constexpr std::uint32_t ECHO_TARGET_DEBUG_A = 0x00010000;
inline constexpr std::uint32_t ECHO_TARGET_DEBUG_B = 0x00020000;
inline constexpr std::uint32_t ECHO_TARGET_DEBUG_S = 0x00040000;
inline constexpr std::uint32_t ECHO_TARGET_DEBUG_E = 0x00080000;
inline constexpr std::uint32_t ECHO_TARGET_DEBUG = 0x00100000;

/// The combinations that decide what is shown: script commands, command lines written to the target, lines
/// read from it, and the line count at the end of the run.
inline constexpr std::uint32_t echoScriptMask = ECHO_NOISY | ECHO_SCRIPT | ECHO_DEBUG;
inline constexpr std::uint32_t echoTargetMask = ECHO_NOISY | ECHO_DEBUG | ECHO_TARGET;
inline constexpr std::uint32_t echoReadMask = ECHO_NOISY | ECHO_DEBUG;
inline constexpr std::uint32_t echoExitMask = ECHO_NOISY | ECHO_DEBUG | ECHO_EXIT;

/// Non-zero while debug traces are written.
extern int DEBUG;

/// Writes the formatted text and a newline to standard error when `flags` has a bit of `echoScriptMask`.
[[gnu::format(printf, 2, 3)]] void print(std::uint32_t flags, const char* format, ...);

/// Writes "DEBUG: ", the formatted text and a newline to standard error while `DEBUG` is non-zero.
[[gnu::format(printf, 1, 2)]] void debug_print(const char* format, ...);

} // namespace secapp
