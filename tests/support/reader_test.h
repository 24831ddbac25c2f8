// Helpers for the tests of all readers.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "convert/pixels/image.h"

namespace keldo::convert::testing {

using Data = std::vector<std::uint8_t>;

/// An image that was read to its last row.
struct Image {
  ImageInfo info;
  Data rgb;  ///< Three bytes per pixel, for any layout of the rows.
};

/// Reads a file of any format, by content. Throws ImageError.
[[nodiscard]] Image ReadWholeImage(const Data& file, const Limits& limits = {});

/// Why a file cannot be read; nothing if it can.
[[nodiscard]] std::optional<ImageError::Kind> RefusalOf(const Data& file,
                                                        const Limits& limits = {});

/// The pixels that ImageMagick reads from a file, with transparent ones on the background: three
/// bytes per pixel. Its canvas offset is dropped, as for a thumbnail. Empty if it reads nothing.
[[nodiscard]] Data ImageMagickPixels(const Data& file);

/// The largest difference between two lists of samples; 1000 if their lengths differ.
[[nodiscard]] int LargestDifference(const Data& a, const Data& b);

/// Pixels in which neighbours, rows and channels differ: `channels` bytes per pixel.
[[nodiscard]] Data SamplePixels(int width, int height, int channels);

/// An EXIF block with an orientation and, unless `denominator` is 0, a density of
/// numerator / denominator in both directions, in EXIF's number for the unit.
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
