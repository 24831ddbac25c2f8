// What the tests of all readers share.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "convert/pixels/image.h"

namespace keldo::convert::testing {

using Data = std::vector<std::uint8_t>;

/// An image, read to its last row.
struct Image {
  ImageInfo info;
  Data rgb;  ///< three bytes a pixel, whatever the layout of the rows
};

/// Reads a file of any format, by content. Throws ImageError.
[[nodiscard]] Image ReadWholeImage(const Data& file, const Limits& limits = {});

/// Why a file cannot be read; nothing when it can.
[[nodiscard]] std::optional<ImageError::Kind> RefusalOf(const Data& file,
                                                        const Limits& limits = {});

/// The pixels that ImageMagick makes of a file, transparent ones over the background: three bytes a
/// pixel. Its canvas offset is dropped, as making a thumbnail does. Empty when it reads nothing.
[[nodiscard]] Data ImageMagickPixels(const Data& file);

/// The largest difference between two lists of samples; 1000 when their lengths differ.
[[nodiscard]] int LargestDifference(const Data& a, const Data& b);

/// Pixels in which neighbours, rows and channels differ: `channels` bytes a pixel.
[[nodiscard]] Data SamplePixels(int width, int height, int channels);

/// An EXIF block with an orientation and, unless `denominator` is 0, a density of
/// numerator / denominator in both directions, with EXIF's number of its unit.
struct ExifFacts {
  std::uint16_t orientation = 1;
  std::uint32_t numerator = 0;
  std::uint32_t denominator = 0;
  std::uint16_t unit = 2;
  bool big_endian = false;
};
[[nodiscard]] Data ExifBlock(const ExifFacts& facts);

void Append(Data& to, const std::string& bytes);
void AppendLittle16(Data& to, std::uint32_t number);
void AppendLittle32(Data& to, std::uint32_t number);
void AppendBig16(Data& to, std::uint32_t number);
void AppendBig32(Data& to, std::uint32_t number);

}  // namespace keldo::convert::testing
