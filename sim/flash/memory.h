#pragma once

#include "descriptor.h"
#include "text.h"

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace vqxsim {

/// Undoes a memory mapping of `length` bytes.
struct Unmap {
    std::size_t length = 0;
    void operator()(std::uint8_t* bytes) const;
};

/// Memory that costs only what is touched, however large it claims to be. It is handled in blocks; a block
/// that was never touched holds one value throughout. Kept in a file, its touched bytes are what other
/// programs see there at once.
struct SparseMemory {
    std::uint64_t size = 0;
    std::unique_ptr<std::uint8_t, Unmap> bytes;
    Descriptor file;                     ///< none for memory that ends with the process
    std::vector<std::uint8_t> fillValue; ///< per block: what an untouched block holds
    std::vector<bool> touched;           ///< per block: `bytes` holds its content
};

/// Makes `memory` hold `size` bytes of `fill`. A `path` that is not empty names the file that keeps them:
/// found content stays, a new or empty file is filled. Fails when memory or file cannot be had, or the file
/// has another size.
[[nodiscard]] ErrorText openMemory(SparseMemory& memory, std::uint64_t size, std::uint8_t fill,
                                   const std::string& path);

/// Whether the file, if there is one, still has the size of the memory. When it has not, no bytes may be
/// used.
[[nodiscard]] bool isWhole(const SparseMemory& memory);

/// Gives the bytes [offset, offset + length), which must lie inside the memory, for reading and writing. An
/// empty span for a length above 0 means that the file cannot hold them (`errno` tells why).
[[nodiscard]] std::span<std::uint8_t> writableBytes(SparseMemory& memory, std::uint64_t offset,
                                                    std::uint64_t length);

/// Sets [offset, offset + length) to `value`, whole untouched blocks at no cost. Returns false as
/// `writableBytes` fails.
[[nodiscard]] bool fillMemory(SparseMemory& memory, std::uint64_t offset, std::uint64_t length,
                              std::uint8_t value);

/// The first offset from `offset` on whose byte is not `value`, none when all are.
[[nodiscard]] std::optional<std::uint64_t> firstOther(const SparseMemory& memory, std::uint64_t offset,
                                                      std::uint8_t value);

} // namespace vqxsim
