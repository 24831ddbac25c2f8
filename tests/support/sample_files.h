// Image files made in memory for the tests of the readers.
#pragma once

#include <string>
#include <vector>

#include "convert/readers/reader_tools.h"
#include "support/reader_test.h"

namespace keldo::convert::testing {

struct PngChunk {
  std::string type;
  Data content;
};

struct PngFacts {
  int width = 40;
  int height = 30;
  int depth = 8;
  int colour = 2;  ///< PNG's number for the colour type
  bool interlaced = false;
  std::vector<PngChunk> chunks{};  ///< before the pixels
};
/// A PNG file of SamplePixels or, with a palette, of values below its length.
[[nodiscard]] Data PngFile(const PngFacts& facts);

struct TiffFacts {
  int width = 40;
  int height = 30;
  int samples = 3;
  int bits = 8;
  int photometric = 2;    ///< TIFF's number: 0 and 1 gray, 2 RGB, 3 palette
  int compression = 1;    ///< TIFF's number: 1 none, 5 LZW, 7 JPEG, 8 deflate
  int extra_sample = -1;  ///< TIFF's number: 0 unknown, 1 premultiplied, 2 separate; -1 for none
  int orientation = 1;
  int tile = 0;  ///< side of a tile; 0 for strips of eight rows
  int planar = 1;
  int subfile = 0;
  float density = 0;  ///< in both directions; 0 for none
  int density_unit = 2;
  Data icc{};
  Data pixels{};  ///< in the machine's byte order; empty for SamplePixels
  int pages = 1;
};
[[nodiscard]] Data TiffFile(const TiffFacts& facts);

struct WebpFacts {
  int width = 40;
  int height = 30;
  bool alpha = false;
  bool lossless = true;
  bool animated = false;  ///< only its flag is set
  Data icc{};
  Data exif{};
};
[[nodiscard]] Data WebpFile(const WebpFacts& facts);

struct GifFrame {
  int left = 0;
  int top = 0;
  int width = 40;
  int height = 30;
  int transparent = -1;
  bool interlaced = false;
  bool own_palette = false;
  int colours = 256;  ///< in its own palette
};
struct GifFacts {
  int canvas_width = 40;
  int canvas_height = 30;
  bool palette = true;
  int background = 9;
  std::vector<GifFrame> frames{{}};
};
[[nodiscard]] Data GifFile(const GifFacts& facts);

struct HeifFacts {
  int width = 64;
  int height = 48;
  bool av1 = false;
  bool alpha = false;
  int bits = 8;
  int orientation = 1;
  Data icc{};
  Data exif{};  ///< starts with the byte order mark
};
[[nodiscard]] Data HeifFile(const HeifFacts& facts);

}  // namespace keldo::convert::testing
