// An image on its way through the converter: row by row from the top, 8 bits per sample.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "convert/pixels/plan.h"
#include "util/bytes.h"

namespace keldo::convert {

/// Thrown by the readers and the pixel work, and caught in one place. `what()` is a phrase for the
/// user, such as "the file ends in its header"; the caller that prints it adds the file's name.
class ImageError : public std::runtime_error {
 public:
  enum class Kind {
    kCorrupt,      ///< the file is damaged or empty
    kLimit,        ///< the image is larger than the limits allow
    kUnsupported,  ///< a valid file that ImageMagick has to read
    kOutput,       ///< a thumbnail could not be written
  };

  ImageError(Kind kind, const std::string& reason) : std::runtime_error(reason), kind_(kind) {}

  [[nodiscard]] Kind kind() const { return kind_; }

 private:
  Kind kind_;
};

/// What an image may cost, checked before memory is allocated. Larger than any camera's panorama,
/// and small enough that a hostile header cannot exhaust a machine.
struct Limits {
  int side = 65500;                                   ///< pixels; what a JPEG file can have
  std::int64_t pixels = std::int64_t{1} << 29;        ///< of the whole image
  std::int64_t memory_bytes = std::int64_t{1} << 30;  ///< for pixels, at any one time
};

/// Checks an image of this size against the limits. `bytes_held` is the most memory that
/// reading it takes at one time. Throws ImageError (kLimit) with the figure that is too large, or
/// (kCorrupt) for a side below 1.
void CheckLimits(const Limits& limits, std::int64_t width, std::int64_t height,
                 std::int64_t bytes_held);

enum class PixelLayout : std::uint8_t { kGray, kRgb, kBgr };

/// Bytes per pixel.
[[nodiscard]] constexpr int ChannelsOf(PixelLayout layout) {
  return layout == PixelLayout::kGray ? 1 : 3;
}

/// Pixel density as JFIF writes it. The unit is 0 for none (an aspect ratio), 1 for dots per inch,
/// 2 for dots per centimetre.
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
  int width = 0;        ///< pixels, of the rows delivered
  int height = 0;       ///< pixels, of the rows delivered
  int full_width = 0;   ///< pixels, of the image in the file; it may be decoded at a reduced size
  int full_height = 0;  ///< pixels
  PixelLayout layout = PixelLayout::kRgb;
  bool has_alpha_or_palette = false;  ///< decides the filter for the first thumbnail
  int orientation = 1;                ///< EXIF orientation of the rows, 1 to 8
  Density density;
  std::vector<std::uint8_t> icc;         ///< embedded ICC profile; empty for none
  std::optional<JpegSampling> sampling;  ///< of a JPEG source in colour
};

/// How an image is to be read.
struct ReadOptions {
  Limits limits;
  Box first_box;           ///< of the first thumbnail; a decode may not be smaller
  bool one_thread = true;  ///< the codec must not start threads
};

/// An image whose header has been read. Transparent pixels come flattened onto the background:
/// white, or the colour that the file names.
class ImageReader {
 public:
  ImageReader() = default;
  ImageReader(const ImageReader&) = delete;
  ImageReader& operator=(const ImageReader&) = delete;
  virtual ~ImageReader() = default;

  [[nodiscard]] virtual const ImageInfo& info() const = 0;
  /// The next row, info().width * ChannelsOf(info().layout) bytes, valid until the next call. At
  /// most info().height calls. Throws ImageError.
  [[nodiscard]] virtual const std::uint8_t* NextRow() = 0;
};

/// Receives an image of known size, row by row from the top.
class RowSink {
 public:
  RowSink() = default;
  RowSink(const RowSink&) = delete;
  RowSink& operator=(const RowSink&) = delete;
  virtual ~RowSink() = default;

  /// Adds the next row, which need not outlive the call. Throws ImageError.
  virtual void AddRow(const std::uint8_t* row) = 0;
  /// Ends the image, after its last row. Throws ImageError.
  virtual void Finish() = 0;
};

}  // namespace keldo::convert
