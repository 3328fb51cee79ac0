#pragma once

#include "firmware/firmware.h"

namespace fuzzing {

/// A simulated target in memory. Nobody waits for it: a target that has nothing to say is silent for as long
/// as it takes to make its firmware act, and after that it is gone.
struct MemoryPort {
    vqxsim::Firmware firmware;
    /// Answers, and how much of them the tool has read.
    std::string toHost;
    std::size_t taken = 0;
    /// The most bytes that the port takes at once.
    std::size_t writeLimit = 4096;
};
[[nodiscard]] MemoryPort& memoryPort();

/// The device that the tool must open: every byte of its port then goes to the memory port, or comes from it.
[[nodiscard]] const char* memoryDevice();

/// The image that a name such as "image513" stands for, that many bytes long; none for other names.
[[nodiscard]] std::optional<std::string> madeImage(std::string_view name);

} // namespace fuzzing
