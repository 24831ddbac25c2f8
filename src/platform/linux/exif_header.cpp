#include "platform/linux/exif_header.h"

#include <cstdint>
#include <exiv2/exiv2.hpp>

namespace keldo::platform {
namespace {

long OrientationIn(const Exiv2::ExifData& exif) {
  const auto tag = exif.findKey(Exiv2::ExifKey("Exif.Image.Orientation"));
  return tag == exif.end() || tag->count() == 0 ? 0 : tag->toLong();
}

}  // namespace

ExifHeader ReadExifHeader(const std::string& path) {
  Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
  constexpr bool kFromTheNetwork = false;
  const auto image = Exiv2::ImageFactory::open(path, kFromTheNetwork);
  image->readMetadata();
  return {.size = {.width = image->pixelWidth(), .height = image->pixelHeight()},
          .orientation = OrientationIn(image->exifData())};
}

long ExifOrientation(std::string_view tiff) {
  Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
  try {
    Exiv2::ExifData exif;
    // The library reads bytes; characters are bytes too.
    Exiv2::ExifParser::decode(exif, reinterpret_cast<const Exiv2::byte*>(tiff.data()),
                              static_cast<std::uint32_t>(tiff.size()));
    return OrientationIn(exif);
  } catch (...) {
    return 0;
  }
}

}  // namespace keldo::platform
