#pragma once

#include <string>

namespace secapp {

/// What was found under the name of an image.
struct ImageFile {
    /// Equal for all names of one file.
    std::string key;
    /// Why it is no image that can be programmed, to follow the name; empty without a reason.
    std::string problem;
    /// A pipe or a character device.
    bool isPipe = false;
    /// Whether its check word is another one than the calculated one.
    bool changesWithChecksum = false;
};

/// Looks at the file of that name. Only a regular file is opened.
[[nodiscard]] ImageFile inspectImage(const std::string& name);

} // namespace secapp
