// Small pictures whose corners show how they were rotated, and JPEG files of them.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace keldo::testing {

using Rgb = std::array<std::uint8_t, 3>;

/// Pixels in rows from the top, each from the left.
struct Picture {
  int width = 0;
  int height = 0;
  std::vector<Rgb> pixels;

  [[nodiscard]] Rgb At(int x, int y) const {
    return pixels[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) +
                  static_cast<std::size_t>(x)];
  }
};

/// Four colours: top left, top right, bottom left, bottom right.
using CornerColours = std::array<Rgb, 4>;

/// Four colours far from one another, so that four pixels prove any rotation or mirror.
inline constexpr CornerColours kCornerColours = {
    {{200, 30, 30}, {30, 160, 30}, {30, 40, 200}, {220, 210, 40}}};

/// A picture of four quarters.
[[nodiscard]] Picture FourCorners(int width, int height,
                                  const CornerColours& colours = kCornerColours);
/// A picture of one colour.
[[nodiscard]] Picture Plain(int width, int height, Rgb colour);

/// The colours in the middle of the four quarters.
[[nodiscard]] CornerColours Corners(const Picture& picture);
/// The greatest difference of any channel of any corner.
[[nodiscard]] int CornerDistance(const CornerColours& a, const CornerColours& b);

/// The pixels that a camera stores with this EXIF orientation (1 to 8) so that the picture is shown
/// upright.
[[nodiscard]] Picture StoredWith(int orientation, const Picture& upright);
/// The picture rotated clockwise by 0, 90, 180 or 270 degrees.
[[nodiscard]] Picture Rotated(int degrees, const Picture& picture);

struct JpegOptions {
  int quality = 90;
  int orientation = 0;  ///< EXIF tag; none when 0.
  std::string icc{};    ///< Colour profile; none when empty.
  bool gray = false;
};

[[nodiscard]] std::string EncodeJpeg(const Picture& picture, const JpegOptions& options = {});
/// Nothing when the content is no JPEG file, or a damaged or cut one.
[[nodiscard]] std::optional<Picture> DecodeJpeg(const std::string& content);
/// A JPEG file whose header claims this size and whose pixels are not to be decoded.
[[nodiscard]] std::string JpegHeaderOf(int width, int height, int orientation = 0);

/// A portable pixmap, which every image tool reads.
[[nodiscard]] std::string EncodePpm(const Picture& picture);

}  // namespace keldo::testing
