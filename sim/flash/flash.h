#pragma once

#include "flash/memory.h"

namespace vqxsim {

/// The properties of a flash memory. Addresses and sizes are in bytes, below 2^36, so that sums never wrap.
struct RegionSpec {
    std::string name;
    std::uint64_t base = 0;
    std::uint64_t size = 0x80000;
    std::uint64_t page = 512;
    std::uint64_t buffer = 0x8000;
    std::uint8_t blank = 0xFF;
};

/// One flash memory; its bytes are allocated at the first use.
struct Region {
    RegionSpec spec;
    std::optional<SparseMemory> memory;
};

/// The flash memories of one target.
struct Flash {
    std::vector<Region> regions;
    std::string directory;   ///< stores each memory in a file NAME.bin; empty: no files
    Descriptor lock;         ///< of the directory
    bool nullMemory = false; ///< commands succeed without effect
};

/// A flash bit that keeps its old value at the next program or erase.
struct StuckBit {
    std::optional<std::uint64_t>
        address;      ///< none: any byte that the command changes, chosen with `pick` and set here
    unsigned bit = 0; ///< 0 to 7: the bit if it changes, else the next higher one that does
    std::uint64_t pick = 0;
    bool silent = false;   ///< the firmware reports success
    bool occurred = false; ///< set when a bit kept its value
};

/// Creates and locks `flash.directory` and opens the files that are small enough to be opened at the start.
/// Fails if another process has it locked, the name of a memory cannot be a file name, or a file cannot be
/// used.
[[nodiscard]] ErrorText openDirectory(Flash& flash);

/// The memory with the address; null if there is none.
[[nodiscard]] Region* findRegion(Flash& flash, std::uint64_t address);

/// Fails when `pages` pages at the address are not in one memory; else sets `length` to their bytes.
[[nodiscard]] ErrorText checkPages(Flash& flash, std::uint64_t address, std::uint64_t pages,
                                   std::uint64_t& length);

/// Writes `data`, pages that `checkPages` passed, at the address: bits only change from their blank value.
/// Fails, with the pages before it written, at a page whose content then differs from the data. `stuck`, when
/// given, keeps one bit from changing.
[[nodiscard]] ErrorText programFlash(Flash& flash, std::uint64_t address, std::span<const std::uint8_t> data,
                                     StuckBit* stuck);

/// Compares `data`, as in `programFlash`, with the flash. Fails with the first address that differs.
[[nodiscard]] ErrorText verifyFlash(Flash& flash, std::uint64_t address, std::span<const std::uint8_t> data);

/// Erases from the address to the end of its memory; `stuck`, if not null, keeps one bit.
[[nodiscard]] ErrorText eraseFlash(Flash& flash, std::uint64_t address, StuckBit* stuck);

/// Fails with the first address that is not blank, from `address` to the end of its memory.
[[nodiscard]] ErrorText checkBlank(Flash& flash, std::uint64_t address);

/// Reads `length` bytes from the address on, which must be in one memory, into `bytes`.
[[nodiscard]] ErrorText readFlash(Flash& flash, std::uint64_t address, std::uint64_t length,
                                  std::vector<std::uint8_t>& bytes);

} // namespace vqxsim
