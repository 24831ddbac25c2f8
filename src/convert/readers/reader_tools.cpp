#include "convert/readers/reader_tools.h"

#include <optional>

#include "media/header_readers.h"

namespace keldo::convert {
namespace {

using media::TiffDirectory;

// The weighted mean, rounded: exactly value for an alpha of 255 and background for 0.
std::uint8_t Mix(unsigned value, unsigned alpha, unsigned background) {
  constexpr unsigned kOpaque = 255;
  return static_cast<std::uint8_t>((value * alpha + background * (kOpaque - alpha) + kOpaque / 2) /
                                   kOpaque);
}

}  // namespace

void FlattenGray(const std::uint8_t* from, std::size_t pixels, const Background& background,
                 std::uint8_t* to) {
  for (std::size_t i = 0; i < pixels; ++i)
    to[i] = Mix(from[2 * i], from[2 * i + 1], background[0]);
}

void FlattenRgb(const std::uint8_t* from, std::size_t pixels, const Background& background,
                std::uint8_t* to) {
  for (std::size_t i = 0; i < pixels; ++i) {
    const unsigned alpha = from[4 * i + 3];
    to[3 * i] = Mix(from[4 * i], alpha, background[0]);
    to[3 * i + 1] = Mix(from[4 * i + 1], alpha, background[1]);
    to[3 * i + 2] = Mix(from[4 * i + 2], alpha, background[2]);
  }
}

int OrientationOf(Bytes exif) {
  const std::uint32_t orientation =
      TiffDirectory(exif).Integer(TiffDirectory::kOrientation).value_or(1);
  return orientation >= 1 && orientation <= 8 ? static_cast<int>(orientation) : 1;
}

Density DensityWithExif(Bytes exif, const Density& header) {
  const TiffDirectory directory(exif);
  const std::optional<double> x = directory.Rational(TiffDirectory::kXResolution);
  const std::optional<double> y = directory.Rational(TiffDirectory::kYResolution);
  // An image without a density stays without one unless EXIF names both directions.
  const bool unknown = header == Density{};
  if (unknown && (!x || !y)) return header;
  Density density = header;
  if (x) density.x = DensityValue(*x);
  if (y) density.y = DensityValue(*y);
  // In EXIF 1 is none, 2 inch, 3 centimetre; in JFIF each is one less.
  const std::uint32_t unit = directory.Integer(TiffDirectory::kResolutionUnit).value_or(0);
  if (unit >= 1 && unit <= 3) density.unit = static_cast<std::uint8_t>(unit - 1);
  if (x == 0.0 || y == 0.0) return Density{};
  return density;
}

}  // namespace keldo::convert
