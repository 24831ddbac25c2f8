// How the pixels of an image come in, whatever its format: row by row from the top, 8 bits a
// sample.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "convert/pixels/limits.h"
#include "convert/pixels/plan.h"

namespace keldo::convert {

using Bytes = std::span<const std::uint8_t>;

enum class PixelLayout : std::uint8_t { kGray, kRgb, kBgr };

/// Bytes a pixel.
[[nodiscard]] constexpr int ChannelsOf(PixelLayout layout) {
  return layout == PixelLayout::kGray ? 1 : 3;
}

/// Pixel density as JFIF writes it: 0 no unit (an aspect ratio), 1 dots an inch, 2 dots a
/// centimetre.
struct Density {
  std::uint8_t unit = 0;
  std::uint16_t x = 1;
  std::uint16_t y = 1;
  friend bool operator==(const Density&, const Density&) = default;
};

/// Sampling factors (1 to 4) of the three components of a JPEG file, horizontal and vertical.
struct JpegSampling {
  std::array<int, 3> horizontal{1, 1, 1};
  std::array<int, 3> vertical{1, 1, 1};
  friend bool operator==(const JpegSampling&, const JpegSampling&) = default;
};

/// What is known before the first row.
struct ImageInfo {
  int width = 0;        ///< pixels, of the rows that come
  int height = 0;       ///< pixels, of the rows that come
  int full_width = 0;   ///< pixels, of the image in the file, which may be read at a reduced size
  int full_height = 0;  ///< pixels
  PixelLayout layout = PixelLayout::kRgb;
  bool has_alpha_or_palette = false;  ///< decides the filter that the first thumbnail is made with
  int orientation = 1;                ///< EXIF orientation of the rows, 1 to 8
  Density density;
  std::vector<std::uint8_t> icc;         ///< embedded ICC profile; empty for none
  std::optional<JpegSampling> sampling;  ///< of a JPEG source in colour
};

/// How an image is to be read.
struct ReadOptions {
  Limits limits;
  Box first_box;           ///< what the first thumbnail needs; a smaller decode is of no use
  bool one_thread = true;  ///< the codec must not start threads
};

/// An image whose header was read. Transparent pixels are already laid over the background: white,
/// or the one that the file names.
class ImageReader {
 public:
  ImageReader() = default;
  ImageReader(const ImageReader&) = delete;
  ImageReader& operator=(const ImageReader&) = delete;
  virtual ~ImageReader() = default;

  [[nodiscard]] virtual const ImageInfo& info() const = 0;
  /// The next row, info().width * ChannelsOf(info().layout) bytes, valid until the next call. To be
  /// called info().height times at most. Throws ImageError.
  [[nodiscard]] virtual const std::uint8_t* NextRow() = 0;
};

}  // namespace keldo::convert
