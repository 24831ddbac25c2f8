// How the pixels of a TIFF page are stored, and how they become rows.
#pragma once

#include <tiffio.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "convert/pixels/image.h"
#include "convert/readers/reader_tools.h"

namespace keldo::convert {

/// The functions of libtiff that we use, filled by LoadTiff.
struct TiffCodec {
  decltype(&::TIFFOpenOptionsAlloc) options_alloc;
  decltype(&::TIFFOpenOptionsFree) options_free;
  decltype(&::TIFFOpenOptionsSetMaxSingleMemAlloc) options_set_max_single_mem_alloc;
  decltype(&::TIFFOpenOptionsSetErrorHandlerExtR) options_set_error_handler;
  decltype(&::TIFFOpenOptionsSetWarningHandlerExtR) options_set_warning_handler;
  decltype(&::TIFFClientOpenExt) client_open_ext;
  decltype(&::TIFFClose) close;
  decltype(&::TIFFGetField) get_field;
  decltype(&::TIFFGetFieldDefaulted) get_field_defaulted;
  decltype(&::TIFFSetField) set_field;
  decltype(&::TIFFIsTiled) is_tiled;
  decltype(&::TIFFIsCODECConfigured) is_codec_configured;
  decltype(&::TIFFScanlineSize64) scanline_size;
  decltype(&::TIFFTileRowSize64) tile_row_size;
  decltype(&::TIFFReadScanline) read_scanline;
  decltype(&::TIFFReadTile) read_tile;
};

extern constinit TiffCodec tiff_codec;

enum class TiffAlpha : std::uint8_t {
  kNone,
  kSeparate,       ///< colours are independent of alpha
  kPremultiplied,  ///< colours are already multiplied by alpha
};

/// A page of gray, RGB or palette pixels with 8 or 16 bits per sample.
struct TiffLayout {
  int width = 0;
  int height = 0;
  std::uint32_t tile_width = 0;   ///< 0 for a page in strips
  std::uint32_t tile_height = 0;  ///< 0 for a page in strips
  std::size_t samples = 1;        ///< per pixel, alpha included
  bool sixteen_bits = false;
  bool zero_is_white = false;
  TiffAlpha alpha = TiffAlpha::kNone;
  std::vector<Background> palette;  ///< 256 colours; empty for none
  int orientation = 1;
  Density density;
  std::vector<std::uint8_t> icc;

  [[nodiscard]] std::size_t BytesPerPixel() const { return samples * (sixteen_bits ? 2 : 1); }
  /// Of the file's pixels.
  [[nodiscard]] std::size_t RowBytes() const {
    return static_cast<std::size_t>(width) * BytesPerPixel();
  }
  [[nodiscard]] bool IsGray() const {
    return palette.empty() && samples <= (alpha == TiffAlpha::kNone ? 1U : 2U);
  }
};

/// The layout of the current page. Throws ImageError, of kind kUnsupported for other pages, among
/// them the previews in camera RAW files.
[[nodiscard]] TiffLayout TiffLayoutOf(TIFF* tiff);

/// Converts a row as the file stores it to 8-bit gray or RGB without alpha.
void ConvertTiffRow(const TiffLayout& layout, const std::uint8_t* stored, std::uint8_t* row);

}  // namespace keldo::convert
