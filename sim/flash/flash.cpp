#include "flash/flash.h"

#include "file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>

namespace vqxsim {

namespace {

/// Files of memories are created at the start until their sizes add up to this; later ones wait for their
/// first use.
constexpr std::uint64_t readyLimit = 64U << 20;

using Bytes = std::span<std::uint8_t>;

std::string nameOf(const Region& region) {
    return printable(region.spec.name, 64);
}

ErrorText outside(std::uint64_t address) {
    return formatText("Address 0x%08llx is in no flash region", shown(address));
}

ErrorText unusable(const Region& region) {
    return formatText("Memory %s cannot be used: %s", nameOf(region).c_str(), std::strerror(errno));
}

ErrorText openRegion(const Flash& flash, Region& region) {
    if (region.memory)
        return std::nullopt;
    const std::string path = flash.directory.empty() ? "" : flash.directory + "/" + region.spec.name + ".bin";
    region.memory.emplace();
    ErrorText error = openMemory(*region.memory, region.spec.size, region.spec.blank, path);
    if (error)
        region.memory.reset();
    return error;
}

/// The lowest set bit of `candidates` at or above `bit`, or the lowest of all.
std::uint8_t chooseBit(unsigned candidates, unsigned bit) {
    const unsigned above = candidates & (0xFFU << bit);
    const unsigned from = above != 0 ? above : candidates;
    return static_cast<std::uint8_t>(from & (~from + 1));
}

/// The offset and bit that the stuck bit keeps among `length` bytes at `base`; `changes` tells which bits of
/// a byte change.
template <typename Changes>
std::optional<std::pair<std::size_t, std::uint8_t>> keptBit(StuckBit* stuck, std::uint64_t base,
                                                            std::size_t length, Changes changes) {
    if (stuck == nullptr || length == 0)
        return std::nullopt;
    const std::uint64_t first = stuck->address ? *stuck->address - base : stuck->pick % length;
    const std::size_t tries = stuck->address ? 1 : length;
    for (std::size_t i = 0; first < length && i < tries; ++i) {
        const auto offset = static_cast<std::size_t>((first + i) % length);
        const unsigned candidates = changes(offset);
        if (candidates != 0) {
            stuck->occurred = true;
            stuck->address = base + offset;
            return std::pair(offset, chooseBit(candidates, stuck->bit));
        }
    }
    return std::nullopt;
}

/// Finds the memory with the address and allocates its bytes if necessary.
ErrorText useRegion(Flash& flash, std::uint64_t address, Region*& region) {
    region = findRegion(flash, address);
    if (region == nullptr)
        return outside(address);
    if (ErrorText error = openRegion(flash, *region))
        return error;
    // Using what another program has cut off the file would end the process.
    if (!isWhole(*region->memory))
        return formatText("Memory %s cannot be used: its file was cut", nameOf(*region).c_str());
    return std::nullopt;
}

/// Two simulators on one memory would work on each other's flash.
ErrorText lockFolder(Flash& flash) {
    const std::string path = flash.directory + "/lock";
    flash.lock = Descriptor(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666));
    if (!flash.lock)
        return systemError(path);
    const auto holder = lockByte(flash.lock, 0);
    return holder ? ErrorText(flash.directory + ": is in use by " + *holder) : std::nullopt;
}

/// The bytes of the flash from the address on, which must be in one memory.
ErrorText useBytes(Flash& flash, std::uint64_t address, std::uint64_t length, Region*& region, Bytes& bytes) {
    if (ErrorText error = useRegion(flash, address, region))
        return error;
    const std::uint64_t offset = address - region->spec.base;
    if (length > region->spec.size - offset) {
        return formatText("0x%llx bytes at 0x%08llx exceed memory %s", shown(length), shown(address),
                          nameOf(*region).c_str());
    }
    bytes = writableBytes(*region->memory, offset, length);
    return bytes.size() == length ? std::nullopt : unusable(*region);
}

void programPage(Bytes page, std::span<const std::uint8_t> data, std::uint8_t blank) {
    for (std::size_t i = 0; i < page.size(); ++i)
        page[i] = static_cast<std::uint8_t>(((page[i] ^ blank) | (data[i] ^ blank)) ^ blank);
}

} // namespace

ErrorText openDirectory(Flash& flash) {
    std::error_code code;
    std::filesystem::create_directories(flash.directory, code);
    if (code)
        return flash.directory + ": " + code.message();
    if (ErrorText error = lockFolder(flash))
        return error;
    std::uint64_t ready = 0;
    for (Region& region : flash.regions) {
        const std::string& name = region.spec.name;
        if (name.empty() || name.size() > 250 || name.find('/') != std::string::npos ||
            name.find('\0') != std::string::npos)
            return formatText("Memory name '%s' does not serve as a file name", printable(name, 64).c_str());
        ready += region.spec.size;
        if (ready <= readyLimit) {
            if (ErrorText error = openRegion(flash, region))
                return error;
        }
    }
    return std::nullopt;
}

Region* findRegion(Flash& flash, std::uint64_t address) {
    const auto found = std::find_if(flash.regions.begin(), flash.regions.end(), [=](const Region& region) {
        return address >= region.spec.base && address - region.spec.base < region.spec.size;
    });
    return found == flash.regions.end() ? nullptr : &*found;
}

ErrorText checkPages(Flash& flash, std::uint64_t address, std::uint64_t pages, std::uint64_t& length) {
    const Region* const region = findRegion(flash, address);
    if (region == nullptr)
        return outside(address);
    const std::uint64_t page = region->spec.page;
    const std::uint64_t offset = address - region->spec.base;
    if (page == 0)
        return formatText("Memory %s has no page size", nameOf(*region).c_str());
    if (offset % page != 0)
        return formatText("Address 0x%08llx is not at the start of a page", shown(address));
    if (pages == 0)
        return "No pages given";
    if (pages > (region->spec.size - offset) / page) {
        return formatText("0x%llx pages at 0x%08llx exceed memory %s", shown(pages), shown(address),
                          nameOf(*region).c_str());
    }
    length = pages * page;
    return std::nullopt;
}

ErrorText programFlash(Flash& flash, std::uint64_t address, std::span<const std::uint8_t> data,
                       StuckBit* stuck) {
    if (flash.nullMemory)
        return std::nullopt;
    Region* region = nullptr;
    Bytes cells;
    if (ErrorText error = useBytes(flash, address, data.size(), region, cells))
        return error;
    const std::uint8_t blank = region->spec.blank;
    const auto kept = keptBit(stuck, address, data.size(), [&](std::size_t i) {
        return static_cast<std::uint8_t>((data[i] ^ blank) & ~(cells[i] ^ blank));
    });
    const auto pageSize = static_cast<std::size_t>(region->spec.page);
    for (std::size_t start = 0; start < data.size(); start += pageSize) {
        const Bytes page = cells.subspan(start, pageSize);
        const auto wanted = data.subspan(start, pageSize);
        programPage(page, wanted, blank);
        if (std::memcmp(page.data(), wanted.data(), page.size()) != 0) {
            const auto differing =
                std::mismatch(page.begin(), page.end(), wanted.begin()).first - page.begin();
            return formatText("Program failed at 0x%08llx",
                              shown(address + start + static_cast<std::uint64_t>(differing)));
        }
        if (kept && kept->first - start < page.size()) {
            cells[kept->first] ^= kept->second;
            if (!stuck->silent)
                return formatText("Program failed at 0x%08llx", shown(address + kept->first));
        }
    }
    return std::nullopt;
}

ErrorText verifyFlash(Flash& flash, std::uint64_t address, std::span<const std::uint8_t> data) {
    if (flash.nullMemory)
        return std::nullopt;
    Region* region = nullptr;
    Bytes cells;
    if (ErrorText error = useBytes(flash, address, data.size(), region, cells))
        return error;
    if (std::memcmp(cells.data(), data.data(), data.size()) == 0)
        return std::nullopt;
    const auto at = static_cast<std::size_t>(std::mismatch(cells.begin(), cells.end(), data.begin()).first -
                                             cells.begin());
    return formatText("Verify failed at 0x%08llx: flash holds 0x%02x, buffer 0x%02x", shown(address + at),
                      cells[at], data[at]);
}

ErrorText eraseFlash(Flash& flash, std::uint64_t address, StuckBit* stuck) {
    if (flash.nullMemory)
        return findRegion(flash, address) == nullptr ? outside(address) : std::nullopt;
    Region* region = nullptr;
    if (ErrorText error = useRegion(flash, address, region))
        return error;
    const std::uint8_t blank = region->spec.blank;
    const std::uint64_t offset = address - region->spec.base;
    const std::uint64_t length = region->spec.size - offset;
    const bool mayKeep = stuck != nullptr && firstOther(*region->memory, offset, blank);
    const Bytes cells = mayKeep ? writableBytes(*region->memory, offset, length) : Bytes();
    const auto kept = keptBit(stuck, address, cells.size(),
                              [&](std::size_t i) { return static_cast<std::uint8_t>(cells[i] ^ blank); });
    if (!fillMemory(*region->memory, offset, length, blank))
        return unusable(*region);
    if (kept) {
        writableBytes(*region->memory, offset + kept->first, 1)[0] ^= kept->second;
        if (!stuck->silent)
            return formatText("Erase failed at 0x%08llx", shown(address + kept->first));
    }
    return std::nullopt;
}

ErrorText checkBlank(Flash& flash, std::uint64_t address) {
    if (flash.nullMemory)
        return findRegion(flash, address) == nullptr ? outside(address) : std::nullopt;
    Region* region = nullptr;
    if (ErrorText error = useRegion(flash, address, region))
        return error;
    const auto other = firstOther(*region->memory, address - region->spec.base, region->spec.blank);
    return other ? formatText("Not blank at 0x%08llx", shown(region->spec.base + *other)) : ErrorText();
}

ErrorText readFlash(Flash& flash, std::uint64_t address, std::uint64_t length,
                    std::vector<std::uint8_t>& bytes) {
    if (flash.nullMemory) {
        bytes.assign(static_cast<std::size_t>(length), 0xFF);
        return findRegion(flash, address) == nullptr ? outside(address) : std::nullopt;
    }
    Region* region = nullptr;
    Bytes cells;
    ErrorText error = useBytes(flash, address, length, region, cells);
    bytes.assign(cells.begin(), cells.end());
    return error;
}

} // namespace vqxsim
