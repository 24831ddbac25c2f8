// WebP files that are not animated, by libwebp.
#pragma once

#include <memory>

#include "convert/pixels/image.h"

namespace keldo::convert {

/// Loads libwebp; false when it is not installed.
[[nodiscard]] bool LoadWebp();

/// Reads the header of a WebP file; LoadWebp was called. Throws ImageError.
[[nodiscard]] std::unique_ptr<ImageReader> OpenWebp(Bytes file, const ReadOptions& options);

}  // namespace keldo::convert
