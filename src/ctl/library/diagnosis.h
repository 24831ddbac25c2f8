// Why a photo has no thumbnails.
#pragma once

#include <string>

namespace keldo::ctl {

/// Why the thumbnails of a photo could not be made, in words: "is cut off: the end of the image is
/// missing". Checks the photo and the machine as they are now, cheapest checks first; decodes
/// nothing and runs no program. If nothing is wrong, says where to look further.
[[nodiscard]] std::string WhyFailed(const std::string& photo_path);

/// Why a run left a photo undone without failing on it: no access, no space, another run.
[[nodiscard]] std::string WhyUnfinished(const std::string& photo_path);

/// True when a run is working on the photos of a directory right now. Does not take the lock, which
/// could make a run that starts just then skip the directory.
[[nodiscard]] bool IsDirectoryLocked(const std::string& directory);

}  // namespace keldo::ctl
