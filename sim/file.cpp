#include "file.h"

#include "descriptor.h"

#include <array>
#include <fcntl.h>

namespace vqxsim {

ErrorText readFile(const std::string& path, std::size_t limit, std::string& text) {
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
    if (!file)
        return systemError(path);
    text.clear();
    std::array<char, 0x4000> piece{};
    ssize_t count = 0;
    while ((count = read(file.get(), piece.data(), piece.size())) > 0) {
        text.append(piece.data(), static_cast<std::size_t>(count));
        if (text.size() > limit)
            return formatText("%s: has more than %zu bytes", path.c_str(), limit);
    }
    return count == 0 ? std::nullopt : systemError(path);
}

} // namespace vqxsim
