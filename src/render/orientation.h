// How a photo must be turned so that its new thumbnails match those it already has.
#pragma once

#include <string>

#include "thumbs/thumb_job.h"

namespace keldo {

/// Degrees clockwise, one of 0, 90, 180 and 270, by which `sourcePath` (the photo, or a RAW photo's
/// intermediate) must be turned to look like the largest thumbnail in `thumbDir`. Two candidate
/// rotations are rendered and compared with it; 0 when there is no thumbnail or a rendering fails.
/// The renderings ("Temp_*.jpg") are removed. Logs when that fails.
[[nodiscard]] int DetectRawRotation(const ThumbJob& job, const std::string& sourcePath,
                                    const std::string& thumbDir);

/// Mean absolute error between two images, the whole-number part in the comparing program's units;
/// 65535 when it cannot be measured (logged when the program cannot be started).
[[nodiscard]] int CompareImagesMAE(const std::string& imagePath, const std::string& referencePath);

}  // namespace keldo
