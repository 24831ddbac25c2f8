// Which phase of a photo's thumbnails is to be made first.
#pragma once

#include <string>

#include "thumbs/thumb_profile.h"

namespace keldo {

/// No phase is due: all thumbnails are there and current.
inline constexpr int kNoPhaseDue = -1;

/// The first of the phases 0, 1 and 2 that is due for a photo, or kNoPhaseDue. A phase is due when
/// one of its thumbnails is missing, has less than 2 bytes, or is older than the photo.
[[nodiscard]] int FirstPhaseDue(const ThumbProfileList& profiles, const std::string& photo_path,
                                const std::string& ea_dir);

}  // namespace keldo
