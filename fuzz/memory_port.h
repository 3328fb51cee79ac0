#pragma once

#include "firmware.h"

namespace fuzzing {

/// A simulated target in memory on which every port that the tool opens ends: `memory_port.cpp` stands in for
/// the tool's serial port. Nobody waits: a target that has nothing to say is silent for as long as it takes
/// to make its firmware act, and after that it is gone.
struct MemoryPort {
    vqxsim::Firmware firmware;
    /// Answers that the tool has not read yet.
    std::string toHost;
    /// The most bytes that the port takes at once.
    std::size_t writeLimit = 4096;
};
[[nodiscard]] MemoryPort& memoryPort();

/// The image that a name such as "image513" stands for, that many bytes long; none for other names.
[[nodiscard]] std::optional<std::string> madeImage(std::string_view name);

} // namespace fuzzing
