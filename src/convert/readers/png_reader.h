// PNG files, by libpng.
#pragma once

#include <memory>

#include "convert/pixels/image.h"

namespace keldo::convert {

/// Loads libpng; false when it is not installed.
[[nodiscard]] bool LoadPng();

/// Reads the header of a PNG file; LoadPng was called. Throws ImageError.
[[nodiscard]] std::unique_ptr<ImageReader> OpenPng(Bytes file, const ReadOptions& options);

}  // namespace keldo::convert
