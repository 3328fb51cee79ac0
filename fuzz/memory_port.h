#pragma once

#include "firmware/firmware.h"

namespace fuzzing {

/// A simulated target in memory. No read waits: if the target has nothing to send, its firmware's time-out
/// occurs, and after that the device is gone.
struct MemoryPort {
    vqxsim::Firmware firmware;
    /// Answers, and the number of their bytes that secapp has read.
    std::string toHost;
    std::size_t taken = 0;
    /// The most bytes that the port accepts in one write.
    std::size_t writeLimit = 4096;
};
[[nodiscard]] MemoryPort& memoryPort();

/// The path that secapp must open; its port then reads from and writes to the memory port.
[[nodiscard]] const char* memoryDevice();

/// The image with a name such as "image513", which gives its size in bytes; empty for other names.
[[nodiscard]] std::optional<std::string> madeImage(std::string_view name);

} // namespace fuzzing
