// The first frame of GIF files, by giflib.
#pragma once

#include <memory>

#include "convert/pixels/image.h"

namespace keldo::convert {

/// Loads giflib; false when it is not installed.
[[nodiscard]] bool LoadGif();

/// Reads the header of a GIF file; LoadGif was called. Throws ImageError.
[[nodiscard]] std::unique_ptr<ImageReader> OpenGif(Bytes file, const ReadOptions& options);

}  // namespace keldo::convert
