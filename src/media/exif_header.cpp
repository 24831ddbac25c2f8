#include "media/exif_header.h"

#include <exiv2/exiv2.hpp>

namespace keldo::media {
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

}  // namespace keldo::media
