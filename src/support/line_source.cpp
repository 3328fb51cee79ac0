#include "support/line_source.h"

#include "support/file.h"
#include "support/text.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace secapp {
namespace {

std::optional<std::string> lineOfContent(LineSource& source) {
    const std::string_view rest = std::string_view(*source.content).substr(source.returned, textLimit);
    if (rest.empty())
        return std::nullopt;
    const std::string_view line = rest.substr(0, std::min(rest.find('\n'), rest.size() - 1) + 1);
    source.returned += line.size();
    return std::string(line);
}

} // namespace

LineSource& standardInput() {
    static LineSource source{.stream = stdin};
    return source;
}

void readWhole(LineSource& source) {
    if (!fileState(source.stream))
        return;
    source.content.emplace();
    std::array<char, BUFSIZ> piece{};
    while (const std::size_t count = std::fread(piece.data(), 1, piece.size(), source.stream))
        source.content->append(piece.data(), count);
}

std::optional<std::string> readTextLine(LineSource& source) {
    if (source.content)
        return lineOfContent(source);
    std::string line;
    int c = 0;
    while (line.size() < textLimit && (c = std::fgetc(source.stream)) != EOF) {
        line += static_cast<char>(c);
        if (c == '\n')
            return line;
    }
    if (line.empty() || (c == EOF && std::ferror(source.stream) != 0))
        return std::nullopt;
    return line;
}

} // namespace secapp
