// The photos that lie directly in a directory.
#pragma once

#include <string>
#include <vector>

namespace keldo {

/// Names of the regular files (links followed) in `dirPath` that get thumbnails, in ascending byte
/// order; "._" names are left out. `dirPath` has no trailing slash. What cannot be read is logged
/// and left out.
[[nodiscard]] std::vector<std::string> ListDirPhotos(const std::string& dirPath);

}  // namespace keldo
