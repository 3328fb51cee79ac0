#include "flash.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>

namespace vqxsim {

namespace {

/// Files of regions are made at the start until they hold this much together; later ones wait for their first
/// use.
constexpr std::uint64_t readyLimit = 64U << 20;

using Bytes = std::span<std::uint8_t>;

Failure outside(std::uint64_t address) {
    return format("Address 0x%08llx is in no flash region", static_cast<unsigned long long>(address));
}

Failure at(const char* problem, std::uint64_t address) {
    return format("%s at 0x%08llx", problem, static_cast<unsigned long long>(address));
}

Failure unusable(const Region& region) {
    return format("Memory %s cannot be used: %s", printable(region.spec.name, 64).c_str(),
                  std::strerror(errno));
}

Failure openRegion(const Flash& flash, Region& region) {
    if (region.memory) {
        return std::nullopt;
    }
    const std::string path = flash.folder.empty() ? "" : flash.folder + "/" + region.spec.name + ".bin";
    region.memory.emplace();
    Failure failure = openMemory(*region.memory, region.spec.size, region.spec.blank, path);
    if (failure) {
        region.memory.reset();
    }
    return failure;
}

/// The lowest set bit of `candidates` at or above `bit`, or the lowest of all.
std::uint8_t chooseBit(unsigned candidates, unsigned bit) {
    const unsigned above = candidates & (0xFFU << bit);
    const unsigned from = above != 0 ? above : candidates;
    return static_cast<std::uint8_t>(from & (~from + 1));
}

/// Finds a byte for which `changes` tells changing bits, the weak cell's own or the first from its pick on,
/// and keeps one of them: `keep` gets the offset and the bit.
template <typename Changes, typename Keep>
void strikeWeakCell(WeakCell& weak, std::uint64_t base, std::uint64_t length, Changes changes, Keep keep) {
    const std::uint64_t first = weak.address ? *weak.address - base : weak.pick % length;
    if (first >= length) {
        return;
    }
    const std::uint64_t tries = weak.address ? 1 : length;
    for (std::uint64_t i = 0; i < tries; ++i) {
        const std::uint64_t offset = (first + i) % length;
        const unsigned candidates = changes(offset);
        if (candidates != 0) {
            keep(offset, chooseBit(candidates, weak.bit));
            weak.struck = true;
            weak.address = base + offset;
            return;
        }
    }
}

void programPage(Bytes page, std::span<const std::uint8_t> data, std::uint8_t blank) {
    for (std::size_t i = 0; i < page.size(); ++i) {
        page[i] = static_cast<std::uint8_t>(((page[i] ^ blank) | (data[i] ^ blank)) ^ blank);
    }
}

} // namespace

Failure openFolder(Flash& flash) {
    std::set<std::string_view> names;
    std::uint64_t ready = 0;
    for (Region& region : flash.regions) {
        const std::string& name = region.spec.name;
        if (name.empty() || name.size() > 250 || name.find('/') != name.npos ||
            name.find('\0') != name.npos) {
            return format("Region name '%s' does not serve as a file name", printable(name, 64).c_str());
        }
        if (!names.insert(name).second) {
            return format("Two regions are named '%s'", printable(name, 64).c_str());
        }
        ready += region.spec.size;
        if (ready <= readyLimit) {
            if (Failure failure = openRegion(flash, region)) {
                return failure;
            }
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

std::uint64_t pageBytes(Flash& flash, std::uint64_t address, std::uint64_t pages, Failure& failure) {
    const Region* const region = findRegion(flash, address);
    if (region == nullptr) {
        failure = outside(address);
        return 0;
    }
    const std::uint64_t page = region->spec.page;
    const std::uint64_t offset = address - region->spec.base;
    if (page == 0) {
        failure = format("Memory %s has no page size", printable(region->spec.name, 64).c_str());
    } else if (offset % page != 0) {
        failure = format("Address 0x%08llx is not at the start of a page",
                         static_cast<unsigned long long>(address));
    } else if (pages == 0) {
        failure = "No pages given";
    } else if (pages > (region->spec.size - offset) / page) {
        failure = format("%llu pages do not fit into memory %s", static_cast<unsigned long long>(pages),
                         printable(region->spec.name, 64).c_str());
    } else {
        return pages * page;
    }
    return 0;
}

Failure programFlash(Flash& flash, std::uint64_t address, std::span<const std::uint8_t> data,
                     WeakCell* weak) {
    if (flash.nullMemory) {
        return std::nullopt;
    }
    Region& region = *findRegion(flash, address);
    if (Failure failure = openRegion(flash, region)) {
        return failure;
    }
    const Bytes cells = touch(*region.memory, address - region.spec.base, data.size());
    if (cells.empty()) {
        return unusable(region);
    }
    const std::uint8_t blank = region.spec.blank;
    std::optional<std::pair<std::uint64_t, std::uint8_t>> kept;
    if (weak != nullptr) {
        strikeWeakCell(
            *weak, address, data.size(),
            [&](std::uint64_t i) {
                return unsigned(data[i] ^ blank) & unsigned(~(cells[i] ^ blank)) & 0xFFU;
            },
            [&](std::uint64_t i, std::uint8_t bit) {
                kept = {i, bit};
            });
    }
    for (std::size_t start = 0; start < data.size(); start += region.spec.page) {
        const Bytes page = cells.subspan(start, region.spec.page);
        const auto wanted = data.subspan(start, region.spec.page);
        programPage(page, wanted, blank);
        if (kept && kept->first - start < page.size()) {
            cells[kept->first] ^= kept->second;
            if (weak->silent) {
                continue;
            }
        }
        if (std::memcmp(page.data(), wanted.data(), page.size()) != 0) {
            const auto differing =
                std::mismatch(page.begin(), page.end(), wanted.begin()).first - page.begin();
            return at("Program failed", address + start + static_cast<std::uint64_t>(differing));
        }
    }
    return std::nullopt;
}

Failure verifyFlash(Flash& flash, std::uint64_t address, std::span<const std::uint8_t> data) {
    if (flash.nullMemory) {
        return std::nullopt;
    }
    Region& region = *findRegion(flash, address);
    if (Failure failure = openRegion(flash, region)) {
        return failure;
    }
    const Bytes cells = touch(*region.memory, address - region.spec.base, data.size());
    if (cells.empty()) {
        return unusable(region);
    }
    if (std::memcmp(cells.data(), data.data(), data.size()) == 0) {
        return std::nullopt;
    }
    const auto differing = static_cast<std::size_t>(
        std::mismatch(cells.begin(), cells.end(), data.begin()).first - cells.begin());
    return format("Verify failed at 0x%08llx: flash holds 0x%02x, buffer 0x%02x",
                  static_cast<unsigned long long>(address + differing), cells[differing], data[differing]);
}

Failure eraseFlash(Flash& flash, std::uint64_t address, WeakCell* weak) {
    Region* const region = findRegion(flash, address);
    if (region == nullptr) {
        return outside(address);
    }
    if (flash.nullMemory) {
        return std::nullopt;
    }
    if (Failure failure = openRegion(flash, *region)) {
        return failure;
    }
    const std::uint8_t blank = region->spec.blank;
    std::optional<std::pair<std::uint64_t, std::uint8_t>> kept;
    const auto programmed = firstOther(*region->memory, blank);
    if (weak != nullptr && programmed) {
        const Bytes cells = touch(*region->memory, 0, region->spec.size);
        if (cells.empty()) {
            return unusable(*region);
        }
        strikeWeakCell(
            *weak, region->spec.base, region->spec.size,
            [&](std::uint64_t i) { return unsigned(cells[i] ^ blank); },
            [&](std::uint64_t i, std::uint8_t bit) {
                kept = {i, bit};
            });
    }
    if (!fillMemory(*region->memory, 0, region->spec.size, blank)) {
        return unusable(*region);
    }
    if (kept) {
        touch(*region->memory, kept->first, 1)[0] ^= kept->second;
        if (!weak->silent) {
            return at("Erase failed", region->spec.base + kept->first);
        }
    }
    return std::nullopt;
}

Failure checkBlank(Flash& flash, std::uint64_t address) {
    Region* const region = findRegion(flash, address);
    if (region == nullptr) {
        return outside(address);
    }
    if (flash.nullMemory) {
        return std::nullopt;
    }
    if (Failure failure = openRegion(flash, *region)) {
        return failure;
    }
    const auto other = firstOther(*region->memory, region->spec.blank);
    return other ? at("Not blank", region->spec.base + *other) : std::nullopt;
}

Failure readFlash(Flash& flash, std::uint64_t address, std::uint64_t length,
                  std::vector<std::uint8_t>& bytes) {
    Region* const region = findRegion(flash, address);
    if (region == nullptr) {
        return outside(address);
    }
    const std::uint64_t offset = address - region->spec.base;
    if (length > region->spec.size - offset) {
        return format("%llu bytes at 0x%08llx exceed memory %s", static_cast<unsigned long long>(length),
                      static_cast<unsigned long long>(address), printable(region->spec.name, 64).c_str());
    }
    if (flash.nullMemory) {
        bytes.insert(bytes.end(), length, region->spec.blank);
        return std::nullopt;
    }
    if (Failure failure = openRegion(flash, *region)) {
        return failure;
    }
    const Bytes cells = touch(*region->memory, offset, length);
    if (cells.size() != length) {
        return unusable(*region);
    }
    bytes.insert(bytes.end(), cells.begin(), cells.end());
    return std::nullopt;
}

} // namespace vqxsim
