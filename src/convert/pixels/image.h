// An image on its way through the converter: row by row from the top, 8 bits a sample.
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

/// Thrown by readers and the pixel work, and caught in one place. `what()` is a phrase for the
/// user, such as "the file ends in its header"; the file's name is added by whoever prints it.
class ImageError : public std::runtime_error {
 public:
  enum class Kind {
    kCorrupt,      ///< the file is damaged or empty
    kLimit,        ///< the image is larger than the limits allow
    kUnsupported,  ///< a valid file of a kind that another converter must read
    kOutput,       ///< a thumbnail could not be written
  };

  ImageError(Kind kind, const std::string& reason) : std::runtime_error(reason), kind_(kind) {}

  [[nodiscard]] Kind kind() const { return kind_; }

 private:
  Kind kind_;
};

/// Larger than any camera's panorama, and small enough that a hostile header cannot exhaust a
/// machine.
struct Limits {
  int side = 65500;                                   ///< pixels; what a JPEG file can have
  std::int64_t pixels = std::int64_t{1} << 29;        ///< of the whole image
  std::int64_t memory_bytes = std::int64_t{1} << 30;  ///< held at one time for pixels
};

/// Checks an image of this size against the limits. `bytes_held` is the memory that reading it
/// takes at one time. Throws ImageError (kLimit) with the figure that is too large, or (kCorrupt)
/// for a side below 1.
void CheckLimits(const Limits& limits, std::int64_t width, std::int64_t height,
                 std::int64_t bytes_held);

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

/// Takes an image of known size, row by row from the top.
class RowSink {
 public:
  RowSink() = default;
  RowSink(const RowSink&) = delete;
  RowSink& operator=(const RowSink&) = delete;
  virtual ~RowSink() = default;

  /// The next row; it is not kept. Throws ImageError.
  virtual void AddRow(const std::uint8_t* row) = 0;
  /// After the last row. Throws ImageError.
  virtual void Finish() = 0;
};

}  // namespace keldo::convert
