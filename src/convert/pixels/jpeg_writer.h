// Writing a JPEG file.
#pragma once

#include <memory>
#include <optional>

#include "convert/pixels/geometry.h"
#include "convert/pixels/image_reader.h"
#include "convert/pixels/row_sink.h"

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

}  // namespace keldo::convert
