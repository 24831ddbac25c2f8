// Opening an image of any format that is read here.
#pragma once

#include <memory>

#include "convert/pixels/image.h"
#include "media/format.h"

namespace keldo::convert {

/// Reads the header of an image. `file` is the whole file and must outlive the reader; LoadCodec of
/// the format was called. Throws ImageError.
[[nodiscard]] std::unique_ptr<ImageReader> OpenImage(Format format, Bytes file,
                                                     const ReadOptions& options);

}  // namespace keldo::convert
