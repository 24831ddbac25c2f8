#include "convert/readers/exif_orientation.h"

#include <cstdint>
#include <optional>

#include "convert/readers/density.h"
#include "media/tiff_directory.h"

namespace keldo::convert {

using media::TiffDirectory;

int OrientationOf(Bytes exif) {
  const std::uint32_t orientation =
      TiffDirectory(exif).Integer(TiffDirectory::kOrientation).value_or(1);
  return orientation >= 1 && orientation <= 8 ? static_cast<int>(orientation) : 1;
}

Density DensityWithExif(Bytes exif, const Density& header) {
  const TiffDirectory directory(exif);
  const std::optional<double> x = directory.Rational(TiffDirectory::kXResolution);
  const std::optional<double> y = directory.Rational(TiffDirectory::kYResolution);
  // An image without a density stays without one unless both sides are named.
  const bool unknown = header == Density{};
  if (unknown && (!x || !y)) return header;
  Density density = header;
  if (x) density.x = DensityValue(*x);
  if (y) density.y = DensityValue(*y);
  // EXIF counts 1 none, 2 inch, 3 centimetre; JFIF one less.
  const std::uint32_t unit = directory.Integer(TiffDirectory::kResolutionUnit).value_or(0);
  if (unit >= 1 && unit <= 3) density.unit = static_cast<std::uint8_t>(unit - 1);
  if (x == 0.0 || y == 0.0) return Density{};
  return density;
}

}  // namespace keldo::convert
