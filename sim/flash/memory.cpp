#include "flash/memory.h"

#include "file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vqxsim {

namespace {

constexpr std::uint64_t blockSize = 0x10000;

/// A file up to this size has its whole content from the start, so that it can be compared with an image. A
/// larger one has holes where nothing was touched yet.
constexpr std::uint64_t wholeFileLimit = 64U << 20;

std::uint64_t blockLength(const SparseMemory& memory, std::size_t block) {
    return std::min(blockSize, memory.size - block * blockSize);
}

bool touchBlock(SparseMemory& memory, std::size_t block) {
    const std::uint64_t start = block * blockSize;
    const auto length = static_cast<std::size_t>(blockLength(memory, block));
    if (memory.file) {
        // Writing to a mapping for which the disk has no space would end the process; this reports it
        // instead.
        const int error =
            posix_fallocate(memory.file.get(), static_cast<off_t>(start), static_cast<off_t>(length));
        if (error != 0) {
            errno = error;
            return false;
        }
    }
    std::memset(memory.bytes.get() + start, memory.fillValue[block], length);
    memory.touched[block] = true;
    return true;
}

void markFoundContent(SparseMemory& memory) {
    if (memory.size <= wholeFileLimit) {
        memory.touched.assign(memory.touched.size(), true);
        return;
    }
    off_t at = 0;
    while ((at = lseek(memory.file.get(), at, SEEK_DATA)) >= 0) {
        const std::uint64_t block = static_cast<std::uint64_t>(at) / blockSize;
        memory.touched[static_cast<std::size_t>(block)] = true;
        at = static_cast<off_t>((block + 1) * blockSize);
    }
}

/// Opens the file and brings it to the memory's size. Sets `found` when it had content.
ErrorText openFile(SparseMemory& memory, const std::string& path, bool& found) {
    memory.file = Descriptor(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666));
    struct stat status {};
    if (!memory.file || fstat(memory.file.get(), &status) != 0)
        return systemError(path);
    // Another simulator may reach it through a link.
    if (const auto holder = lockByte(memory.file, 0))
        return path + ": is in use by " + *holder;
    const auto size = static_cast<std::uint64_t>(status.st_size);
    found = size > 0;
    if (found && size != memory.size) {
        return formatText("%s: has %llu bytes, the memory %llu", path.c_str(), shown(size),
                          shown(memory.size));
    }
    if (!found && ftruncate(memory.file.get(), static_cast<off_t>(memory.size)) != 0)
        return systemError(path);
    return std::nullopt;
}

} // namespace

void Unmap::operator()(std::uint8_t* bytes) const {
    munmap(bytes, length);
}

ErrorText openMemory(SparseMemory& memory, std::uint64_t size, std::uint8_t fill, const std::string& path) {
    memory = SparseMemory{};
    memory.size = size;
    bool found = false;
    if (!path.empty()) {
        if (ErrorText error = openFile(memory, path, found))
            return error;
    }
    if (size == 0)
        return std::nullopt;
    const int kind = memory.file ? MAP_SHARED : MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE;
    const std::string amount = formatText("%llu bytes of memory", shown(size));
    if (size > SIZE_MAX)
        return amount + ": more than this host can address";
    void* const bytes =
        mmap(nullptr, static_cast<std::size_t>(size), PROT_READ | PROT_WRITE, kind, memory.file.get(), 0);
    if (bytes == MAP_FAILED)
        return systemError(amount);
    memory.bytes = {static_cast<std::uint8_t*>(bytes), Unmap{static_cast<std::size_t>(size)}};
    const auto blocks = static_cast<std::size_t>((size + blockSize - 1) / blockSize);
    memory.fillValue.assign(blocks, fill);
    memory.touched.assign(blocks, false);
    if (found)
        markFoundContent(memory);
    else if (memory.file && size <= wholeFileLimit && writableBytes(memory, 0, size).empty())
        return systemError(path);
    return std::nullopt;
}

bool isWhole(const SparseMemory& memory) {
    struct stat status {};
    return !memory.file || (fstat(memory.file.get(), &status) == 0 &&
                            static_cast<std::uint64_t>(status.st_size) >= memory.size);
}

std::span<std::uint8_t> writableBytes(SparseMemory& memory, std::uint64_t offset, std::uint64_t length) {
    if (length == 0)
        return {};
    const auto last = static_cast<std::size_t>((offset + length - 1) / blockSize);
    for (auto block = static_cast<std::size_t>(offset / blockSize); block <= last; ++block)
        if (!memory.touched[block] && !touchBlock(memory, block))
            return {};
    return {memory.bytes.get() + offset, static_cast<std::size_t>(length)};
}

bool fillMemory(SparseMemory& memory, std::uint64_t offset, std::uint64_t length, std::uint8_t value) {
    const std::uint64_t end = offset + length;
    while (offset < end) {
        const auto block = static_cast<std::size_t>(offset / blockSize);
        const std::uint64_t blockStart = block * blockSize;
        const std::uint64_t next = std::min(end, blockStart + blockSize);
        const bool whole = offset == blockStart && next - offset == blockLength(memory, block);
        if (whole && (!memory.touched[block] || !memory.file)) {
            memory.touched[block] = false;
            memory.fillValue[block] = value;
        } else {
            const auto bytes = writableBytes(memory, offset, next - offset);
            if (bytes.empty())
                return false;
            std::memset(bytes.data(), value, bytes.size());
        }
        offset = next;
    }
    return true;
}

std::optional<std::uint64_t> firstOther(const SparseMemory& memory, std::uint64_t offset,
                                        std::uint8_t value) {
    while (offset < memory.size) {
        const auto block = static_cast<std::size_t>(offset / blockSize);
        const std::uint64_t next = block * blockSize + blockLength(memory, block);
        if (!memory.touched[block] && memory.fillValue[block] != value)
            return offset;
        if (memory.touched[block]) {
            const std::uint8_t* const begin = memory.bytes.get() + offset;
            const std::uint8_t* const end = memory.bytes.get() + next;
            const std::uint8_t* const other =
                std::find_if(begin, end, [=](std::uint8_t byte) { return byte != value; });
            if (other != end)
                return offset + static_cast<std::uint64_t>(other - begin);
        }
        offset = next;
    }
    return std::nullopt;
}

} // namespace vqxsim
