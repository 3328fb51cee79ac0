#pragma once

#include "link/handler_data.h"
#include "support/text.h"
#include "transfer/records.h"

#include <cstdint>
#include <span>

namespace secapp {

/// The part of an image that its check word covers, in bytes: eight words whose sum is 0. The last of them is
/// the check word.
inline constexpr std::size_t checkedImageSize = 32;

/// An error for an image whose first chunk, of at most `chunkSize` bytes, would not contain its check word.
/// `imageSize` in bytes, empty if it is not known beforehand.
[[nodiscard]] ErrorText checkChunkSize(std::uint32_t chunkSize, const std::optional<std::int64_t>& imageSize);

/// Replaces the check word in the first chunk of an image at `address`, according to `checksumMode`. An image
/// too short for a check word is not changed; its missing bytes count as zeros.
[[nodiscard]] ErrorText patchChecksum(HandlerData& record, ChecksumMode checksumMode, std::uint32_t address,
                                      std::span<std::uint8_t> chunk);

/// The check word for an image, which has at least seven words.
[[nodiscard]] std::uint32_t calcTargetChecksum(std::span<const std::uint8_t> image);

/// Reads a word of the target's memory. An error when the answer does not begin with a hexadecimal number.
[[nodiscard]] Result<std::uint32_t> readWord(HandlerData& record, std::uint32_t address);

} // namespace secapp
