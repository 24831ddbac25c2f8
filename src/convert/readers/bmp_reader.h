// Windows and OS/2 bitmaps as djpeg writes them
#pragma once

#include <memory>

#include "convert/pixels/image.h"

namespace keldo::convert {

/// Loads  24 bits, or 8 bits of gray.; false when it is not installed.
[[nodiscard]] bool LoadBmp();

/// Reads the header of a BMP file; LoadBmp was called. Throws ImageError.
[[nodiscard]] std::unique_ptr<ImageReader> OpenBmp(Bytes file, const ReadOptions& options);

}  // namespace keldo::convert
