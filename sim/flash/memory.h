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

/// Memory of any size that allocates only the blocks in use. A block that was never used has one value
/// throughout. If the memory is a file, other programs see changes of used bytes immediately.
struct SparseMemory {
    std::uint64_t size = 0;
    std::unique_ptr<std::uint8_t, Unmap> bytes;
    Descriptor file;                     ///< none for memory without a file
    std::vector<std::uint8_t> fillValue; ///< per block: the value of an unused block
    std::vector<bool> touched;           ///< per block: used, its content is in `bytes`
};

/// Initialises `memory` with `size` bytes of `fill`, in the file `path` unless that is empty. Existing
/// content of the file stays. Fails if memory or file cannot be allocated or opened, or the file has another
/// size.
[[nodiscard]] ErrorText openMemory(SparseMemory& memory, std::uint64_t size, std::uint8_t fill,
                                   const std::string& path);

/// Whether the file, if there is one, still has the size of the memory. Otherwise no bytes may be accessed.
[[nodiscard]] bool isWhole(const SparseMemory& memory);

/// The bytes [offset, offset + length), which must be inside the memory, for reading and writing. Returns an
/// empty span for a length above 0 if the file cannot be extended; see `errno`.
[[nodiscard]] std::span<std::uint8_t> writableBytes(SparseMemory& memory, std::uint64_t offset,
                                                    std::uint64_t length);

/// Sets [offset, offset + length) to `value`, without allocating unused blocks. Returns false as
/// `writableBytes` fails.
[[nodiscard]] bool fillMemory(SparseMemory& memory, std::uint64_t offset, std::uint64_t length,
                              std::uint8_t value);

/// The first offset from `offset` on whose byte is not `value`; none if there is none.
[[nodiscard]] std::optional<std::uint64_t> firstOther(const SparseMemory& memory, std::uint64_t offset,
                                                      std::uint8_t value);

} // namespace vqxsim
