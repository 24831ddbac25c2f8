// What exiv2 reads: the headers of PNG, TIFF, WebP and more, and EXIF data by itself.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/linux/simple_header.h"

namespace keldo::platform {

/// What exiv2 finds: a size, and the value of the orientation tag, 0 when there is none. Neither is
/// checked for sense.
struct ExifHeader {
  ImageSize size;
  long orientation = 0;
};

/// Throws what the library throws.
[[nodiscard]] ExifHeader ReadExifHeader(const std::string& path);

/// The orientation tag of EXIF data that begins with its TIFF header; 0 when there is none or the
/// data are damaged.
[[nodiscard]] long ExifOrientation(std::string_view tiff);

}  // namespace keldo::platform
