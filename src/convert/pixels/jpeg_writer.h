// Writing a JPEG file.
#pragma once

#include <memory>
#include <optional>

#include "convert/pixels/image.h"

struct jpeg_compress_struct;

namespace keldo::convert {

/// What a JPEG file is to be like.
struct JpegFormat {
  Size size{};
  PixelLayout layout = PixelLayout::kRgb;
  int quality = 90;  ///< 1 to 100, as libjpeg scales its standard tables
  /// Of the colour components; where there is none, full from quality 90 on, half below.
  std::optional<JpegSampling> sampling{};
  Density density{};
  bool own_tables = false;  ///< Huffman tables made for the file, at the price of a second pass
  Bytes icc{};              ///< ICC profile to embed; empty for none. Must outlive the writer.
};

/// Compresses rows and writes the file to `descriptor` when it is complete; whatever was there is
/// replaced. An image all of whose pixels are gray gets a single component, however it is laid out.
/// Throws ImageError (kOutput).
[[nodiscard]] std::unique_ptr<RowSink> MakeJpegWriter(const JpegFormat& format, int descriptor);

/// Replaces the standard tables of a compressor, whose defaults are set. With tables made from many
/// thumbnails the files are less than 1 % larger than with tables made for each, and the second
/// pass over the coefficients is saved.
void SetThumbnailTables(jpeg_compress_struct& codec);

}  // namespace keldo::convert
