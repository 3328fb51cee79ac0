#pragma once

#include "flash/flash.h"

namespace vqxsim {

/// Reads a memory of the form "NAME[,KEY=N...]" and appends it to `regions`. Fails with a text for the
/// user.
[[nodiscard]] ErrorText readRegion(std::string_view text, std::vector<RegionSpec>& regions);

/// Reads the memories of a board from a file with its answer to queryFlash, as a host reads them; other lines
/// are ignored. Fails with a text for the user that names the file, and the line that cannot be read; also
/// when the file has no memory.
[[nodiscard]] ErrorText readBoard(const std::string& path, std::vector<RegionSpec>& regions);

/// Fails if a host cannot name or address a memory completely, or if two overlap.
[[nodiscard]] ErrorText checkRegions(const std::vector<RegionSpec>& regions);

} // namespace vqxsim
