#include "memory_port.h"

#include "support/file.h"

#include <charconv>

namespace fuzzing {

std::optional<std::string> madeImage(std::string_view name) {
    constexpr std::string_view start = "image";
    constexpr std::size_t sizeLimit = 20000;
    if (!name.starts_with(start))
        return std::nullopt;
    std::size_t size = 0;
    const char* const end = name.data() + name.size();
    const auto [stop, error] = std::from_chars(name.data() + start.size(), end, size);
    if (error != std::errc() || stop != end || size > sizeLimit)
        return std::nullopt;
    std::string image(size, '\0');
    std::uint32_t state = static_cast<std::uint32_t>(size) + 1;
    for (char& byte : image) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<char>(state >> 24);
    }
    return image;
}

} // namespace fuzzing

// Replaces the module support/file of secapp: a fuzzer must not read the files that its inputs name.
namespace secapp {
namespace {

/// Owned here, because a stream on memory does not keep the memory.
std::string opened;

} // namespace

File openDataFile(const std::string& path) {
    const std::optional<std::string> image = fuzzing::madeImage(path);
    if (!image)
        return nullptr;
    opened = *image;
    return File(::fmemopen(opened.data(), opened.size(), "rb"));
}

std::optional<MeasuredFile> openMeasuredFile(const std::string& path) {
    File stream = openDataFile(path);
    if (!stream)
        return std::nullopt;
    return MeasuredFile{std::move(stream), static_cast<std::int64_t>(opened.size()), std::nullopt};
}

std::optional<FileState> fileState(std::FILE* /*stream*/) {
    return std::nullopt;
}

std::optional<std::int64_t> measureFile(std::FILE* /*stream*/) {
    return static_cast<std::int64_t>(opened.size());
}

} // namespace secapp
