// What several readers share: codecs loaded at run time, transparency, and EXIF data.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "convert/pixels/image.h"
#include "media/codec_library.h"

namespace keldo::convert {

using media::CodecLibrary;

/// Red, green and blue; all three equal for gray pixels.
using Background = std::array<std::uint8_t, 3>;

inline constexpr Background kWhite{0xFF, 0xFF, 0xFF};

/// Flattens `pixels` pixels of gray and alpha onto a gray background. `to` may be `from`.
void FlattenGray(const std::uint8_t* from, std::size_t pixels, const Background& background,
                 std::uint8_t* to);

/// Flattens `pixels` pixels of RGBA onto a background. `to` may be `from`.
void FlattenRgb(const std::uint8_t* from, std::size_t pixels, const Background& background,
                std::uint8_t* to);

/// A density as JFIF stores it, in 16 bits. Fractions are cut off, not rounded: 28.5 has always
/// become 28 in thumbnails.
[[nodiscard]] inline std::uint16_t DensityValue(double value) {
  constexpr double kMost = 65535;
  if (!(value > 0)) return 0;
  return static_cast<std::uint16_t>(value < kMost ? value : kMost);
}

/// The orientation in an EXIF block, 1 to 8; 1 where it has none or is damaged. `exif` starts at
/// its byte order mark, "II*" or "MM*".
[[nodiscard]] int OrientationOf(Bytes exif);

/// The density of an image: each value in the EXIF block replaces that of the file's own header.
[[nodiscard]] Density DensityWithExif(Bytes exif, const Density& header);

}  // namespace keldo::convert
