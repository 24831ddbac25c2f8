// What the program says of itself.
#pragma once

#include <string>

namespace keldo::convert {

/// Two lines: the name and version, and the formats that can be read on this machine, "Formats:
/// JPEG BMP ...". Loads every codec to find out.
[[nodiscard]] std::string VersionText();

}  // namespace keldo::convert
