// The sizes of images, and reporting them to the index.
#pragma once

#include <string>

#include "thumbs/thumb_profile.h"

namespace keldo {

/// Width and height in pixels of a photo; for a camera RAW file those of the decoded image. True
/// on success. Failures of the RAW readers are logged.
[[nodiscard]] bool GetImageResolution(const std::string& path, unsigned& x, unsigned& y);

/// The size that the external dcraw reports ("x3f" files).
[[nodiscard]] bool GetDcrawOutputSize(const std::string& path, unsigned& x, unsigned& y);

/// The size that LibRaw reports (every other RAW file). LibRaw runs in a process of its own.
[[nodiscard]] bool GetLibRawOutputSize(const std::string& path, unsigned& x, unsigned& y);

/// Reports the resolutions of a photo and of a thumbnail made from it to the index. Where one of
/// them cannot be measured, logs which and reports nothing.
void ReportConvertedResolution(const ThumbJob& job, const std::string& source_path,
                               const std::string& thumb_path);

}  // namespace keldo
