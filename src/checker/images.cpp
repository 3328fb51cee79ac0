#include "checker/images.h"

#include "support/file.h"
#include "support/text.h"
#include "transfer/image_checksum.h"
#include "transfer/words.h"

#include <array>
#include <cerrno>
#include <cinttypes>
#include <cstring>
#include <optional>

#include <sys/stat.h>

namespace secapp {
namespace {

struct RecordFormat {
    std::string_view start;
    /// Hexadecimal digits in addition to the bytes that the record counts.
    std::size_t overhead;
    const char* name;
    const char* conversion;
};

constexpr RecordFormat recordFormats[] = {
    {":", 10, "an Intel hex file", "objcopy -I ihex -O binary"},
    {"S", 3, "a file of S-records", "objcopy -I srec -O binary"},
};

/// Whether the line is a record whose length is the one that it contains.
bool isRecord(std::string_view line, const RecordFormat& format) {
    constexpr std::string_view digits = "0123456789abcdefABCDEF";
    constexpr std::size_t countLength = 2;
    if (!line.starts_with(format.start))
        return false;
    line.remove_prefix(format.start.size());
    const std::size_t countAt = format.start == "S" ? 1 : 0;
    if (line.size() < format.overhead || line.find_first_not_of(digits) != std::string_view::npos)
        return false;
    const unsigned long count = std::stoul(std::string(line.substr(countAt, countLength)), nullptr, 16);
    return line.size() == format.overhead + 2 * count;
}

/// Why a file that begins like this is not a raw image; empty if it can be one.
std::string formatProblem(std::string_view start) {
    const std::string raw = ", not a raw image: convert it with ";
    if (start.starts_with("\x7F"
                          "ELF"))
        return "is an ELF file" + raw + "objcopy -O binary";
    std::string_view lines = trimwhitespace(start);
    const std::string_view line = trimRight(nextPiece(lines, "\r\n").value_or(""));
    for (const RecordFormat& format : recordFormats)
        if (isRecord(line, format))
            return std::string("is ") + format.name + raw + format.conversion;
    return "";
}

bool changesWithChecksum(std::string_view start) {
    constexpr std::size_t checkWord = 7;
    return start.size() >= checkedImageSize &&
           wordAt(bytesOf(start), checkWord) != calcTargetChecksum(bytesOf(start));
}

void inspectContent(const std::string& name, ImageFile& image) {
    // The longest record has 521 characters.
    std::array<char, 1024> start{};
    const File file(std::fopen(name.c_str(), "rbe"));
    const std::size_t size = file ? std::fread(start.data(), 1, start.size(), file.get()) : 0;
    if (!file || std::ferror(file.get()) != 0) {
        image.problem = std::string("cannot be read: ") + std::strerror(errno);
        return;
    }
    image.problem = size == 0 ? "is empty" : formatProblem({start.data(), size});
    image.changesWithChecksum = changesWithChecksum({start.data(), size});
}

} // namespace

ImageFile inspectImage(const std::string& name) {
    ImageFile image;
    image.key = name;
    struct stat status {};
    if (::stat(name.c_str(), &status) != 0) {
        image.problem = std::string("cannot be opened: ") + std::strerror(errno);
        if (name.find_first_of("\"'") != std::string::npos)
            image.problem += "; quotes are part of a name and do not protect spaces";
        return image;
    }
    image.key =
        formatText("%" PRIuMAX ":%" PRIuMAX, std::uintmax_t{status.st_dev}, std::uintmax_t{status.st_ino});
    image.isPipe = S_ISFIFO(status.st_mode) || S_ISCHR(status.st_mode);
    if (S_ISREG(status.st_mode))
        inspectContent(name, image);
    else
        image.problem = S_ISDIR(status.st_mode) ? "is a directory" : "is not a regular file";
    return image;
}

} // namespace secapp
