#include "flash/description.h"

#include "file.h"

#include <algorithm>
#include <array>
#include <strings.h>

namespace vqxsim {

namespace {

/// Region numbers stay below this, so that sums of them never wrap.
constexpr std::uint64_t regionNumberLimit = 0xFFFFFFFFF;

/// A host adds with 32 bits: no memory may reach this address.
constexpr std::uint64_t addressEnd = 1ULL << 32;

/// Bytes; a list of ten thousand memories is shorter.
constexpr std::size_t boardFileLimit = 1U << 20;

struct RegionKey {
    std::string_view name;
    std::uint64_t limit; ///< of a number on the command line
    void (*set)(RegionSpec&, std::uint64_t);
};

constexpr auto regionKeys = std::to_array<RegionKey>({
    {"base", regionNumberLimit, [](RegionSpec& spec, std::uint64_t n) { spec.base = n; }},
    {"size", regionNumberLimit, [](RegionSpec& spec, std::uint64_t n) { spec.size = n; }},
    {"page", regionNumberLimit, [](RegionSpec& spec, std::uint64_t n) { spec.page = n; }},
    {"buffer", regionNumberLimit, [](RegionSpec& spec, std::uint64_t n) { spec.buffer = n; }},
    {"blank", 0xFF, [](RegionSpec& spec, std::uint64_t n) { spec.blank = static_cast<std::uint8_t>(n); }},
});

bool isEqual(std::string_view a, std::string_view b) {
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

const RegionKey* findKey(std::string_view name) {
    const auto key = std::find_if(regionKeys.begin(), regionKeys.end(),
                                  [=](const RegionKey& k) { return isEqual(k.name, name); });
    return key == regionKeys.end() ? nullptr : &*key;
}

/// A number with an optional K or M for 1024 and 1024 * 1024.
std::optional<std::uint64_t> parseSize(std::string_view text) {
    unsigned shift = 0;
    if (text.ends_with('K') || text.ends_with('M')) {
        shift = text.back() == 'K' ? 10 : 20;
        text.remove_suffix(1);
    }
    const auto number = parseNumber(text);
    if (!number || *number > regionNumberLimit >> shift)
        return std::nullopt;
    return *number << shift;
}

std::string_view cutAt(std::string_view& text, std::string_view separators) {
    const std::size_t end = std::min(text.find_first_of(separators), text.size());
    const std::string_view piece = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return piece;
}

ErrorText setRegionKey(RegionSpec& spec, std::string_view setting) {
    std::string_view value = setting;
    const RegionKey* const key = findKey(cutAt(value, "="));
    if (key == nullptr) {
        return formatText("unknown memory setting '%s' (base, size, page, buffer and blank exist)",
                          printable(setting, 64).c_str());
    }
    const auto number = parseSize(value);
    if (!number || *number > key->limit)
        return formatText("bad number in memory setting '%s'", printable(setting, 64).c_str());
    key->set(spec, *number);
    return std::nullopt;
}

/// The memories of a board as far as its answer was read.
struct BoardReader {
    std::vector<RegionSpec> regions;
    std::optional<std::uint64_t> declared; ///< how many there are
    bool ended = false;                    ///< the rest of the answer does not count
};

/// Reads a line of the answer as a host does: the key before the first "=", the value up to the next. Fails
/// when the number is one that a host would read as another.
ErrorText readBoardLine(BoardReader& reader, std::string_view line) {
    std::string_view rest = line;
    const std::string_view key = trimmed(cutAt(rest, "="));
    const std::string_view value = trimmed(cutAt(rest, "="));
    const bool counts = isEqual(key, "Number of Flash Devices");
    const RegionKey* const property = findKey(key);
    if (isEqual(key, "No Flash"))
        reader.ended = true;
    else if (isEqual(key, "Name") && key.size() < line.size())
        reader.regions.push_back({std::string(value), 0, 0, 0, 0, 0});
    if (!counts && property == nullptr)
        return std::nullopt;
    // A unit may follow the number.
    const auto number = parseHostNumber(value.substr(0, value.find_first_of(" \t")));
    if (!number)
        return "not a number of 32 bits (hexadecimal needs 0x)";
    if (counts)
        reader.declared = *number;
    else if (reader.regions.empty())
        return "comes before the first Name";
    else
        property->set(reader.regions.back(), *number);
    return std::nullopt;
}

/// Fails when a host finds another number of memories than the board claims to have.
ErrorText checkCount(const BoardReader& reader) {
    const std::size_t found = reader.regions.size();
    if (found == 0)
        return "no memory found: it must hold the output of queryFlash";
    const std::uint64_t declared = reader.declared.value_or(0);
    return found == declared || (found == 1 && declared == 0)
               ? std::nullopt
               : ErrorText(formatText("has %zu memories, but 'Number of Flash Devices' is %llu", found,
                                      shown(declared)));
}

ErrorText checkName(const std::vector<RegionSpec>& regions, const RegionSpec& region) {
    const std::string& name = region.name;
    if (name.empty())
        return "a memory has an empty name";
    if (parseNumber(name) || isEqual(name, "0x"))
        return "memory name '" + printable(name, 64) + "' reads as a number";
    const auto same = std::count_if(regions.begin(), regions.end(),
                                    [&](const RegionSpec& r) { return isEqual(r.name, name); });
    return same > 1 ? ErrorText("two memories are named '" + printable(name, 64) + "'") : std::nullopt;
}

} // namespace

ErrorText readRegion(std::string_view text, std::vector<RegionSpec>& regions) {
    RegionSpec spec;
    spec.name = cutAt(text, ",");
    while (!text.empty())
        if (ErrorText error = setRegionKey(spec, cutAt(text, ",")))
            return error;
    regions.push_back(std::move(spec));
    return std::nullopt;
}

ErrorText readBoard(const std::string& path, std::vector<RegionSpec>& regions) {
    std::string text;
    if (ErrorText error = readFile(path, boardFileLimit, text))
        return error;
    BoardReader reader;
    std::string_view rest = text;
    for (std::size_t number = 1; !rest.empty() && !reader.ended; ++number) {
        for (std::string_view line = cutAt(rest, "\n"); !line.empty() && !reader.ended;) {
            const std::string_view piece = cutAt(line, "\r");
            if (const ErrorText error = readBoardLine(reader, piece))
                return formatText("%s:%zu: '%s': %s", path.c_str(), number, printable(piece, 64).c_str(),
                                  error->c_str());
        }
    }
    ErrorText error = checkCount(reader);
    if (!error)
        error = checkRegions(reader.regions);
    regions = std::move(reader.regions);
    return error ? path + ": " + *error : error;
}

ErrorText checkRegions(const std::vector<RegionSpec>& regions) {
    for (const RegionSpec& region : regions)
        if (ErrorText error = checkName(regions, region))
            return error;
    std::vector<RegionSpec> sorted = regions;
    std::sort(sorted.begin(), sorted.end(),
              [](const RegionSpec& a, const RegionSpec& b) { return a.base < b.base; });
    const RegionSpec* before = nullptr;
    for (const RegionSpec& region : sorted) {
        const std::string name = printable(region.name, 64);
        if (region.base + region.size >= addressEnd)
            return formatText("memory '%s' ends at 0x%llx: the last usable address is 0xfffffffe",
                              name.c_str(), shown(region.base + region.size));
        if (before != nullptr && region.size > 0 && region.base < before->base + before->size)
            return "memories '" + printable(before->name, 64) + "' and '" + name + "' overlap";
        if (region.size > 0)
            before = &region;
    }
    return std::nullopt;
}

} // namespace vqxsim
