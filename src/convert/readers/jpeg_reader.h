// JPEG files, by libjpeg-turbo.
#pragma once

#include <memory>

#include "convert/pixels/image.h"

namespace keldo::convert {

/// Reads the header of a JPEG file. Rows come at a half, a quarter or an eighth of the size where
/// that still holds the first thumbnail. A file that is cut off gives gray for what is missing as
/// long as its first rows are there. Throws ImageError.
[[nodiscard]] std::unique_ptr<ImageReader> OpenJpeg(Bytes file, const ReadOptions& options);

}  // namespace keldo::convert
