#pragma once

#include "support/file.h"
#include "transfer/regions.h"

#include <cstdint>
#include <cstdio>
#include <optional>

namespace secapp {

enum class Operation : std::uint32_t { program, verify, erase, blankCheck };

/// How an image's check word is set: not at all, calculated, or read from the target.
enum class ChecksumMode : std::uint32_t { none, calculate, fromTarget };

/// The state of one command's transfers. All sizes are in bytes.
struct TransferDescriptor {
    /// Bytes of this transfer handed to the encoder so far.
    std::uint32_t bytesStaged = 0;
    /// Target address of the transfer's first byte.
    std::uint32_t baseAddress = 0;
    /// Size of the destination memory, 0 for RAM.
    std::uint32_t regionSize = 0;
    /// How many of the staged bytes the target has programmed or verified.
    std::uint32_t bytesCommitted = 0;
    /// At least 1.
    std::uint32_t pageSize = 0;
    /// The part of the target's transfer buffer in use, which is also the size of a chunk; at least 1.
    std::uint32_t bufferSize = 0;
    /// The most raw bytes in one burst; at least 1.
    std::uint32_t burstSize = 0;
    /// The byte to which the target's buffer is reset.
    std::uint8_t fillByte = 0;
    Operation operation = Operation::program;
    ChecksumMode checksumMode = ChecksumMode::none;
    /// The target's memories, empty until the command needs them.
    std::optional<FlashList> flashList;
};

/// The source of a transfer: a file or, without one, a value repeated over a length.
struct TransferSource {
    /// Not owned.
    std::FILE* stream = nullptr;
    /// The number of bytes that the file must contain, empty if it is not known beforehand.
    std::optional<std::int64_t> fileSize = std::nullopt;
    /// The file's state when it was opened, which must be the same when its data are read; empty if there is
    /// nothing to compare.
    std::optional<FileState> fileState = std::nullopt;
    /// The low `fillWidth` bytes are repeated, the lowest first.
    std::uint32_t fillValue = 0;
    /// Bytes of the fill still to be produced.
    std::uint32_t fillRemaining = 0;
    /// 1, 2 or 4.
    std::uint32_t fillWidth = 0;
};

} // namespace secapp
