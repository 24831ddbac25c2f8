// Writing a JPEG file.
#pragma once

#include <memory>
#include <optional>

#include "convert/pixels/image.h"

struct jpeg_compress_struct;

namespace keldo::convert {

/// How a JPEG file is written.
struct JpegFormat {
  Size size{};
  PixelLayout layout = PixelLayout::kRgb;
  int quality = 90;  ///< 1 to 100, as libjpeg scales its standard tables
  /// Of the colour components. By default full from quality 90 on, half below.
  std::optional<JpegSampling> sampling{};
  Density density{};
  bool own_tables = false;  ///< Huffman tables for this file, at the cost of a second pass
  Bytes icc{};              ///< ICC profile to embed; empty for none. Must outlive the writer.
};

/// Compresses rows and writes the file to `descriptor` when it is complete, replacing what was
/// there. An image whose pixels are all gray gets a single component, whatever its layout.
/// Throws ImageError (kOutput).
[[nodiscard]] std::unique_ptr<RowSink> MakeJpegWriter(const JpegFormat& format, int descriptor);

/// Replaces the standard Huffman tables of a compressor after its defaults are set. With tables
/// trained on many thumbnails, files are less than 1 % larger than with tables made for each file,
/// and the second pass over the coefficients is saved.
void SetThumbnailTables(jpeg_compress_struct& codec);

}  // namespace keldo::convert
