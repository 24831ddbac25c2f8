// Why a photo has no thumbnails.
#pragma once

#include <string>

namespace keldo::ctl {

/// What is wrong with a photo whose thumbnails could not be made, as a person says it: "cut off:
/// the end of the picture is missing". Looks at the photo and at the machine as they are now, from
/// the cheapest cause to the dearest; nothing is decoded and no program is run. Where all looks
/// well, says where more can be learnt.
[[nodiscard]] std::string WhyFailed(const std::string& photo_path);

/// Why a run left a photo undone without having failed on it: no access, no room, another run.
[[nodiscard]] std::string WhyUnfinished(const std::string& photo_path);

/// True when a run is working on the photos of a directory at this moment. Looks without taking the
/// lock itself, which could make a run that begins just then pass the directory over.
[[nodiscard]] bool IsDirectoryLocked(const std::string& directory);

}  // namespace keldo::ctl
