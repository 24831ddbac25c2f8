// The first page of TIFF files, by libtiff.
#pragma once

#include <memory>

#include "convert/pixels/image.h"

namespace keldo::convert {

/// Loads libtiff; false when it is not installed.
[[nodiscard]] bool LoadTiff();

/// Reads the header of a TIFF file; LoadTiff was called. Throws ImageError.
[[nodiscard]] std::unique_ptr<ImageReader> OpenTiff(Bytes file, const ReadOptions& options);

}  // namespace keldo::convert
