#include "support/sample_files.h"

#include <tiffio.h>
#include <webp/encode.h>
#include <zlib.h>

#include <algorithm>
#include <cstdio>
#include <stdexcept>

#include "support/temp_dir.h"

namespace keldo::convert::testing {
namespace {

void Require(bool done, const char* what) {
  if (!done) throw std::runtime_error(std::string("cannot make ") + what);
}

void AppendChunk(Data& file, const std::string& type, const Data& content) {
  AppendBig32(file, static_cast<std::uint32_t>(content.size()));
  const std::size_t start = file.size();
  Append(file, type);
  file.insert(file.end(), content.begin(), content.end());
  const uLong crc = crc32(0, file.data() + start, static_cast<uInt>(file.size() - start));
  AppendBig32(file, static_cast<std::uint32_t>(crc));
}

int PngChannels(int colour) {
  constexpr int kChannels[] = {1, 0, 3, 1, 2, 0, 4};
  return kChannels[colour];
}

// A part of the image with its filter bytes: every step-th pixel from x0, y0 on.
void AppendPngRows(const PngFacts& facts, int x0, int y0, int dx, int dy, Data& rows) {
  const int bits = PngChannels(facts.colour) * facts.depth;
  for (int y = y0; y < facts.height; y += dy) {
    if (x0 >= facts.width) return;
    rows.push_back(0);
    const int pixels = (facts.width - x0 + dx - 1) / dx;
    for (int i = 0; i < (pixels * bits + 7) / 8; ++i) {
      const int sample = i * 11 + x0 * 7 + y * 5;
      rows.push_back(
          static_cast<std::uint8_t>(facts.colour == 3 && facts.depth == 8 ? sample % 100 : sample));
    }
  }
}

Data Compressed(const Data& rows) {
  uLongf size = compressBound(static_cast<uLong>(rows.size()));
  Data result(size);
  Require(compress(result.data(), &size, rows.data(), static_cast<uLong>(rows.size())) == Z_OK,
          "PNG data");
  result.resize(size);
  return result;
}

}  // namespace

Data PngFile(const PngFacts& facts) {
  Data file;
  Append(file, "\x89PNG\r\n\x1A\n");
  Data header;
  AppendBig32(header, static_cast<std::uint32_t>(facts.width));
  AppendBig32(header, static_cast<std::uint32_t>(facts.height));
  for (const int byte : {facts.depth, facts.colour, 0, 0, facts.interlaced ? 1 : 0})
    header.push_back(static_cast<std::uint8_t>(byte));
  AppendChunk(file, "IHDR", header);
  for (const PngChunk& chunk : facts.chunks)
    AppendChunk(file, chunk.type, chunk.content);
  Data rows;
  if (facts.interlaced) {
    constexpr int kPasses[7][4] = {{0, 0, 8, 8}, {4, 0, 8, 8}, {0, 4, 4, 8}, {2, 0, 4, 4},
                                   {0, 2, 2, 4}, {1, 0, 2, 2}, {0, 1, 1, 2}};
    for (const auto& pass : kPasses)
      AppendPngRows(facts, pass[0], pass[1], pass[2], pass[3], rows);
  } else {
    AppendPngRows(facts, 0, 0, 1, 1, rows);
  }
  AppendChunk(file, "IDAT", Compressed(rows));
  AppendChunk(file, "IEND", {});
  return file;
}

namespace {

void SetTiffFields(TIFF* tiff, const TiffFacts& facts) {
  TIFFSetField(tiff, TIFFTAG_SUBFILETYPE, facts.subfile);
  TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, facts.width);
  TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, facts.height);
  TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, facts.samples);
  TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, facts.bits);
  TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, facts.photometric);
  TIFFSetField(tiff, TIFFTAG_COMPRESSION, facts.compression);
  TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, facts.planar);
  TIFFSetField(tiff, TIFFTAG_ORIENTATION, facts.orientation);
  if (facts.extra_sample >= 0) {
    const auto kind = static_cast<std::uint16_t>(facts.extra_sample);
    TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, 1, &kind);
  }
  if (facts.density > 0) {
    TIFFSetField(tiff, TIFFTAG_XRESOLUTION, facts.density);
    TIFFSetField(tiff, TIFFTAG_YRESOLUTION, facts.density);
    TIFFSetField(tiff, TIFFTAG_RESOLUTIONUNIT, facts.density_unit);
  }
  if (!facts.icc.empty()) {
    TIFFSetField(tiff, TIFFTAG_ICCPROFILE, static_cast<std::uint32_t>(facts.icc.size()),
                 facts.icc.data());
  }
  if (facts.photometric == PHOTOMETRIC_PALETTE) {
    std::vector<std::uint16_t> map(256);
    for (std::size_t i = 0; i < map.size(); ++i)
      map[i] = static_cast<std::uint16_t>(i * 257 ^ 0x1234U);
    std::vector<std::uint16_t> reversed(map.rbegin(), map.rend());
    TIFFSetField(tiff, TIFFTAG_COLORMAP, map.data(), reversed.data(), map.data());
  }
}

// The size of a pixel in a plane.
std::ptrdiff_t TiffPixelBytes(const TiffFacts& facts) {
  return (facts.planar == PLANARCONFIG_SEPARATE ? 1 : facts.samples) * facts.bits / 8;
}

void WriteTiffTile(TIFF* tiff, const TiffFacts& facts, const Data& pixels, int left, int top) {
  const std::ptrdiff_t pixel = TiffPixelBytes(facts);
  const int width = std::min(facts.tile, facts.width - left);
  const int height = std::min(facts.tile, facts.height - top);
  Data tile(static_cast<std::size_t>(TIFFTileSize(tiff)));
  for (int y = 0; y < height; ++y) {
    const auto from = pixels.begin() + (std::ptrdiff_t{top + y} * facts.width + left) * pixel;
    std::copy(from, from + width * pixel, tile.begin() + std::ptrdiff_t{y} * facts.tile * pixel);
  }
  Require(TIFFWriteTile(tiff, tile.data(), static_cast<std::uint32_t>(left),
                        static_cast<std::uint32_t>(top), 0, 0) > 0,
          "a TIFF tile");
}

void WriteTiffPixels(TIFF* tiff, const TiffFacts& facts) {
  const std::ptrdiff_t pixel = TiffPixelBytes(facts);
  Data pixels = facts.pixels.empty()
                    ? SamplePixels(facts.width, facts.height, static_cast<int>(pixel))
                    : facts.pixels;
  if (facts.tile > 0) {
    TIFFSetField(tiff, TIFFTAG_TILEWIDTH, static_cast<std::uint32_t>(facts.tile));
    TIFFSetField(tiff, TIFFTAG_TILELENGTH, static_cast<std::uint32_t>(facts.tile));
    for (int top = 0; top < facts.height; top += facts.tile) {
      for (int left = 0; left < facts.width; left += facts.tile)
        WriteTiffTile(tiff, facts, pixels, left, top);
    }
    return;
  }
  TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, 8);
  const int planes = facts.planar == PLANARCONFIG_SEPARATE ? facts.samples : 1;
  for (int plane = 0; plane < planes; ++plane) {
    for (int y = 0; y < facts.height; ++y) {
      Require(
          TIFFWriteScanline(tiff, pixels.data() + std::ptrdiff_t{y} * facts.width * pixel,
                            static_cast<std::uint32_t>(y), static_cast<std::uint16_t>(plane)) == 1,
          "a TIFF row");
    }
  }
}

Data ReadAndForget(const std::string& path) {
  Data content;
  std::FILE* file = std::fopen(path.c_str(), "rb");
  Require(file != nullptr, "a file");
  for (int byte = std::getc(file); byte != EOF; byte = std::getc(file))
    content.push_back(static_cast<std::uint8_t>(byte));
  std::fclose(file);
  return content;
}

}  // namespace

Data TiffFile(const TiffFacts& facts) {
  const keldo::testing::TempDir directory;
  const std::string path = directory.path() + "/image.tif";
  TIFF* tiff = TIFFOpen(path.c_str(), "w");
  Require(tiff != nullptr, "a TIFF file");
  for (int page = 0; page < facts.pages; ++page) {
    SetTiffFields(tiff, facts);
    WriteTiffPixels(tiff, facts);
    Require(TIFFWriteDirectory(tiff) == 1, "a TIFF page");
  }
  TIFFClose(tiff);
  return ReadAndForget(path);
}

namespace {

void AppendRiffChunk(Data& file, const std::string& name, const Data& content) {
  Append(file, name);
  AppendLittle32(file, static_cast<std::uint32_t>(content.size()));
  file.insert(file.end(), content.begin(), content.end());
  if (content.size() % 2 != 0) file.push_back(0);
}

Data WebpBitstream(const WebpFacts& facts) {
  const int channels = facts.alpha ? 4 : 3;
  const Data pixels = SamplePixels(facts.width, facts.height, channels);
  const int stride = facts.width * channels;
  std::uint8_t* output = nullptr;
  std::size_t size = 0;
  constexpr float kQuality = 80;
  if (facts.alpha) {
    size =
        facts.lossless
            ? WebPEncodeLosslessRGBA(pixels.data(), facts.width, facts.height, stride, &output)
            : WebPEncodeRGBA(pixels.data(), facts.width, facts.height, stride, kQuality, &output);
  } else {
    size = facts.lossless
               ? WebPEncodeLosslessRGB(pixels.data(), facts.width, facts.height, stride, &output)
               : WebPEncodeRGB(pixels.data(), facts.width, facts.height, stride, kQuality, &output);
  }
  Require(size > 0, "a WebP file");
  Data file(output, output + size);
  WebPFree(output);
  return file;
}

}  // namespace

Data WebpFile(const WebpFacts& facts) {
  Data simple = WebpBitstream(facts);
  if (facts.icc.empty() && facts.exif.empty() && !facts.animated) return simple;
  Data header;
  std::uint32_t flags = facts.alpha ? 0x10 : 0;
  if (!facts.icc.empty()) flags |= 0x20U;
  if (!facts.exif.empty()) flags |= 0x08U;
  if (facts.animated) flags |= 0x02U;
  AppendLittle32(header, flags);
  for (const int side : {facts.width - 1, facts.height - 1}) {
    AppendLittle16(header, static_cast<std::uint32_t>(side));
    header.push_back(0);
  }
  Data body;
  Append(body, "WEBP");
  AppendRiffChunk(body, "VP8X", header);
  if (!facts.icc.empty()) AppendRiffChunk(body, "ICCP", facts.icc);
  // The chunks of the bitstream, including those of alpha, without the file's header.
  const bool extended = std::string(simple.begin() + 12, simple.begin() + 16) == "VP8X";
  body.insert(body.end(), simple.begin() + (extended ? 30 : 12), simple.end());
  if (!facts.exif.empty()) AppendRiffChunk(body, "EXIF", facts.exif);
  Data file;
  AppendRiffChunk(file, "RIFF", body);
  return file;
}

namespace {

// Writes pixels as codes of 9 bits; the table is cleared before it needs longer ones.
Data LzwOf(const Data& pixels) {
  constexpr unsigned kClear = 256;
  constexpr unsigned kEnd = 257;
  constexpr int kWidth = 9;
  Data codes;
  unsigned bits = 0;
  int count = 0;
  const auto put = [&](unsigned code) {
    bits |= code << static_cast<unsigned>(count);
    for (count += kWidth; count >= 8; count -= 8) {
      codes.push_back(static_cast<std::uint8_t>(bits));
      bits >>= 8U;
    }
  };
  put(kClear);
  for (std::size_t i = 0; i < pixels.size(); ++i) {
    if (i % 250 == 249) put(kClear);
    put(pixels[i]);
  }
  put(kEnd);
  if (count > 0) codes.push_back(static_cast<std::uint8_t>(bits));
  return codes;
}

void AppendGifPalette(Data& file, int colours, int seed) {
  for (int i = 0; i < colours * 3; ++i)
    file.push_back(static_cast<std::uint8_t>(i * 37 + seed));
}

Data GifIndices(const GifFrame& frame) {
  Data rows;
  Data pixels = SamplePixels(frame.width, frame.height, 1);
  const auto append_row = [&](std::ptrdiff_t y) {
    rows.insert(rows.end(), pixels.begin() + y * frame.width,
                pixels.begin() + (y + 1) * frame.width);
  };
  if (!frame.interlaced) return pixels;
  constexpr int kPasses[4][2] = {{0, 8}, {4, 8}, {2, 4}, {1, 2}};
  for (const auto& pass : kPasses) {
    for (int y = pass[0]; y < frame.height; y += pass[1])
      append_row(y);
  }
  return rows;
}

void AppendGifFrame(Data& file, const GifFrame& frame) {
  Append(file, std::string("\x21\xF9\x04", 3));
  file.push_back(frame.transparent >= 0 ? 1 : 0);
  AppendLittle16(file, 10);
  file.push_back(static_cast<std::uint8_t>(std::max(frame.transparent, 0)));
  file.push_back(0);
  Append(file, ",");
  for (const int number : {frame.left, frame.top, frame.width, frame.height})
    AppendLittle16(file, static_cast<std::uint32_t>(number));
  const int size_bits = frame.colours == 256 ? 7 : 0;
  file.push_back(static_cast<std::uint8_t>((frame.own_palette ? 0x80 | size_bits : 0) |
                                           (frame.interlaced ? 0x40 : 0)));
  if (frame.own_palette) AppendGifPalette(file, frame.colours, 99);
  file.push_back(8);
  const Data codes = LzwOf(GifIndices(frame));
  for (std::size_t i = 0; i < codes.size(); i += 255) {
    const std::size_t length = std::min<std::size_t>(255, codes.size() - i);
    file.push_back(static_cast<std::uint8_t>(length));
    file.insert(file.end(), codes.begin() + static_cast<std::ptrdiff_t>(i),
                codes.begin() + static_cast<std::ptrdiff_t>(i + length));
  }
  file.push_back(0);
}

}  // namespace

Data GifFile(const GifFacts& facts) {
  Data file;
  Append(file, "GIF89a");
  AppendLittle16(file, static_cast<std::uint32_t>(facts.canvas_width));
  AppendLittle16(file, static_cast<std::uint32_t>(facts.canvas_height));
  file.push_back(facts.palette ? 0xF7 : 0x70);
  file.push_back(static_cast<std::uint8_t>(facts.background));
  file.push_back(0);
  if (facts.palette) AppendGifPalette(file, 256, 5);
  for (const GifFrame& frame : facts.frames)
    AppendGifFrame(file, frame);
  Append(file, ";");
  return file;
}

}  // namespace keldo::convert::testing
