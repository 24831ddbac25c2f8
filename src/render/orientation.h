// How to rotate a RAW photo so that its new thumbnails match those that it already has.
#pragma once

#include <string>

#include "thumbs/thumb_profile.h"

namespace keldo {

/// Degrees clockwise, one of 0, 90, 180 and 270, by which to rotate `source_path` (the photo, or a
/// RAW photo's intermediate image) to match the largest thumbnail in `thumb_dir`. Renders two
/// candidate rotations and compares them with it; 0 when there is no thumbnail or a rendering
/// fails. Removes the renderings ("Temp_*.jpg"), and logs when that fails.
[[nodiscard]] int DetectRawRotation(const ThumbJob& job, const std::string& source_path,
                                    const std::string& thumb_dir);

/// Mean absolute error between two images, the whole-number part in the comparing program's units;
/// 65535 when it cannot be measured (logged when the program cannot be started).
[[nodiscard]] int CompareImagesMAE(const std::string& image_path,
                                   const std::string& reference_path);

}  // namespace keldo
