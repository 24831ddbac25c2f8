// Image sizes, and telling the index about them.
#pragma once

#include <string>

#include "thumbs/thumb_job.h"

namespace keldo {

/// Width and height in pixels of a photo; for a camera RAW file those of the decoded picture. True
/// on success. Failures of the RAW readers are logged.
[[nodiscard]] bool GetImageResolution(const std::string& path, unsigned& x, unsigned& y);

/// The size that the external dcraw reports ("x3f" files).
[[nodiscard]] bool GetDcrawOutputSize(const std::string& path, unsigned& x, unsigned& y);

/// The size that LibRaw reports, every other RAW file. It runs in a process of its own.
[[nodiscard]] bool GetLibRawOutputSize(const std::string& path, unsigned& x, unsigned& y);

/// Tells the index the resolutions of a photo and of a thumbnail made from it. Logs which of the
/// two cannot be measured; nothing is sent then.
void ReportConvertedResolution(const ThumbJob& job, const std::string& sourcePath,
                               const std::string& thumbPath);

}  // namespace keldo
