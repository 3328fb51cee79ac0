#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace secapp {

/// Images are sequences of little-endian 32-bit words.
inline constexpr std::size_t wordSize = 4;

/// The word with that index; all its bytes lie in the data.
[[nodiscard]] inline std::uint32_t wordAt(std::span<const std::uint8_t> data, std::size_t index) {
    const std::uint8_t* bytes = data.data() + index * wordSize;
    return static_cast<std::uint32_t>(bytes[0]) | static_cast<std::uint32_t>(bytes[1]) << 8 |
           static_cast<std::uint32_t>(bytes[2]) << 16 | static_cast<std::uint32_t>(bytes[3]) << 24;
}

inline void setWordAt(std::span<std::uint8_t> data, std::size_t index, std::uint32_t word) {
    for (std::size_t byte = 0; byte < wordSize; ++byte)
        data[index * wordSize + byte] = static_cast<std::uint8_t>(word >> (8 * byte));
}

} // namespace secapp
