// A TIFF file in memory, opened by libtiff.
#pragma once

#include <tiffio.h>

#include <array>

#include "convert/pixels/image.h"

namespace keldo::convert {

/// The functions of libtiff that we use.
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

/// Filled by LoadTiffCodec.
extern constinit TiffCodec tiff_codec;

/// Loads libtiff; false when it is not installed.
[[nodiscard]] bool LoadTiffCodec();

/// Holds a file open, at its first page.
class TiffSource {
 public:
  /// Throws ImageError when that is no TIFF file. libtiff may take as much memory at once as the
  /// limits allow.
  TiffSource(Bytes file, const Limits& limits);
  TiffSource(const TiffSource&) = delete;
  TiffSource& operator=(const TiffSource&) = delete;
  ~TiffSource();

  [[nodiscard]] TIFF* tiff() const { return tiff_; }
  /// Throws ImageError (kCorrupt) with what libtiff said last.
  [[noreturn]] void Refuse() const;

 private:
  [[gnu::format(printf, 4, 0)]] static int OnError(TIFF* tiff, void* self, const char* module,
                                                   const char* format, va_list values);

  Bytes file_;
  std::uint64_t place_ = 0;
  std::array<char, 120> reason_{};
  TIFF* tiff_ = nullptr;

  friend struct TiffCallbacks;
};

}  // namespace keldo::convert
