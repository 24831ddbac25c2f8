// What exiv2 reads: the headers of PNG, TIFF, WebP and more.
#pragma once

#include <string>

#include "media/simple_header.h"

namespace keldo::media {

/// What exiv2 finds: a size, and the value of the orientation tag, 0 when there is none. Neither is
/// checked for sense.
struct ExifHeader {
  ImageSize size;
  long orientation = 0;
};

/// Throws what the library throws.
[[nodiscard]] ExifHeader ReadExifHeader(const std::string& path);

}  // namespace keldo::media
