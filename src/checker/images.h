#pragma once

#include <string>

namespace secapp {

/// The properties of an image file.
struct ImageFile {
    /// Equal for all names of one file.
    std::string key;
    /// Why it cannot be programmed, as words to follow the name; empty if it can.
    std::string problem;
    /// A pipe or a character device.
    bool isPipe = false;
    /// Whether its check word differs from the calculated one.
    bool changesWithChecksum = false;
};

/// Examines the file of that name. Only a regular file is opened.
[[nodiscard]] ImageFile inspectImage(const std::string& name);

} // namespace secapp
