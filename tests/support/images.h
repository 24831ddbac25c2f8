// Small images whose corners show how they were rotated, and JPEG files made from them.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace keldo::testing {

using Rgb = std::array<std::uint8_t, 3>;

/// Rows of pixels from top to bottom, each from left to right.
struct Image {
  int width = 0;
  int height = 0;
  std::vector<Rgb> pixels;

  [[nodiscard]] Rgb At(int x, int y) const {
    return pixels[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) +
                  static_cast<std::size_t>(x)];
  }
};

/// The colours at the top left, top right, bottom left and bottom right.
using CornerColours = std::array<Rgb, 4>;

/// Four colours far from one another, so that four pixels prove any rotation or mirror.
inline constexpr CornerColours kCornerColours = {
    {{200, 30, 30}, {30, 160, 30}, {30, 40, 200}, {220, 210, 40}}};

/// An image of four plain quarters.
[[nodiscard]] Image FourCorners(int width, int height,
                                const CornerColours& colours = kCornerColours);
/// An image of one colour.
[[nodiscard]] Image Plain(int width, int height, Rgb colour);

/// The colours at the centres of the four quarters.
[[nodiscard]] CornerColours Corners(const Image& image);
/// The greatest difference in any channel of any corner.
[[nodiscard]] int CornerDistance(const CornerColours& a, const CornerColours& b);

/// The pixels that a camera stores with this EXIF orientation (1 to 8) so that the image is shown
/// upright.
[[nodiscard]] Image StoredWith(int orientation, const Image& upright);
/// The image rotated clockwise by 0, 90, 180 or 270 degrees.
[[nodiscard]] Image Rotated(int degrees, const Image& image);

struct JpegOptions {
  int quality = 90;
  int orientation = 0;  ///< EXIF tag; 0 for none.
  std::string icc{};    ///< Colour profile; empty for none.
  bool gray = false;
};

[[nodiscard]] std::string EncodeJpeg(const Image& image, const JpegOptions& options = {});
/// Nothing if the content is not a JPEG file, or a damaged or truncated one.
[[nodiscard]] std::optional<Image> DecodeJpeg(const std::string& content);
/// A JPEG file whose header claims this size and whose pixels cannot be decoded.
[[nodiscard]] std::string JpegHeaderOf(int width, int height, int orientation = 0);

/// A portable pixmap, which every image tool reads.
[[nodiscard]] std::string EncodePpm(const Image& image);

}  // namespace keldo::testing
