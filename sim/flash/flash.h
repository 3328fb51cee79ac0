#pragma once

#include "flash/memory.h"

namespace vqxsim {

/// What a flash region claims to be. Addresses and sizes are bytes, below 2^36, so that sums never wrap.
struct RegionSpec {
    std::string name;
    std::uint64_t base = 0;
    std::uint64_t size = 0x80000;
    std::uint64_t page = 512;
    std::uint64_t buffer = 0x8000;
    std::uint8_t blank = 0xFF;
};

/// One flash region; its memory is made when it is first used.
struct Region {
    RegionSpec spec;
    std::optional<SparseMemory> memory;
};

/// The flash memories of one target.
struct Flash {
    std::vector<Region> regions;
    std::string folder;      ///< keeps each region in a file NAME.bin; empty: nothing outlives the process
    Descriptor lock;         ///< of the folder
    bool nullMemory = false; ///< commands succeed without touching memory
};

/// A flash bit that keeps its old value at the next program or erase.
struct StuckBit {
    std::optional<std::uint64_t>
        address;      ///< none: any byte that the command changes, chosen with `pick` and set here
    unsigned bit = 0; ///< 0 to 7: the bit if it changes, else the next higher one that does
    std::uint64_t pick = 0;
    bool silent = false;   ///< the firmware reports success all the same
    bool occurred = false; ///< set when a bit was kept
};

/// Makes and locks `flash.folder` and opens its files, as far as they are small enough to be held ready.
/// Fails when another process has it locked, a region's name does not serve as a file name, or a file cannot
/// be used.
[[nodiscard]] ErrorText openFolder(Flash& flash);

/// The first region that holds the address, none when it lies outside all.
[[nodiscard]] Region* findRegion(Flash& flash, std::uint64_t address);

/// Fails when `pages` pages at the address do not lie in one region; else sets `length` to their bytes.
[[nodiscard]] ErrorText checkPages(Flash& flash, std::uint64_t address, std::uint64_t pages,
                                   std::uint64_t& length);

/// Writes `data`, pages that `checkPages` passed, at the address: bits only ever leave their blank value.
/// Fails, with the pages before it written, at a page whose content then differs from the data. `stuck`, when
/// given, keeps one bit from changing.
[[nodiscard]] ErrorText programFlash(Flash& flash, std::uint64_t address, std::span<const std::uint8_t> data,
                                     StuckBit* stuck);

/// Compares `data`, likewise, with the flash and fails with the first address that differs.
[[nodiscard]] ErrorText verifyFlash(Flash& flash, std::uint64_t address, std::span<const std::uint8_t> data);

/// Makes its region blank from the address on; `stuck`, when given, keeps one bit of it.
[[nodiscard]] ErrorText eraseFlash(Flash& flash, std::uint64_t address, StuckBit* stuck);

/// Fails with the first address that is not blank, from `address` to the end of its region.
[[nodiscard]] ErrorText checkBlank(Flash& flash, std::uint64_t address);

/// Puts `length` bytes from the address on, which must lie in one region, into `bytes`.
[[nodiscard]] ErrorText readFlash(Flash& flash, std::uint64_t address, std::uint64_t length,
                                  std::vector<std::uint8_t>& bytes);

} // namespace vqxsim
