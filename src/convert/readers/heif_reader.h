// The primary image of HEIC, HEIF and AVIF files, by libheif.
#pragma once

#include <memory>

#include "convert/pixels/image.h"

namespace keldo::convert {

/// Loads libheif; false when it is not installed.
[[nodiscard]] bool LoadHeif();

/// Reads the header of a HEIF file; LoadHeif was called. Throws ImageError.
[[nodiscard]] std::unique_ptr<ImageReader> OpenHeif(Bytes file, const ReadOptions& options);

}  // namespace keldo::convert
