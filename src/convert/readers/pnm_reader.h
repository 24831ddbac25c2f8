// PGM and PPM files, 8 and 16 bits.
#pragma once

#include <memory>

#include "convert/pixels/image.h"

namespace keldo::convert {

/// Reads the header of a PNM file. Throws ImageError.
[[nodiscard]] std::unique_ptr<ImageReader> OpenPnm(Bytes file, const ReadOptions& options);

}  // namespace keldo::convert
