#include <tiffio.h>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "convert/readers/readers.h"
#include "convert/readers/tiff_layout.h"

namespace keldo::convert {

constinit TiffCodec tiff_codec{};

namespace {

constexpr int kHandled = 1;

int IgnoreWarning(TIFF* /*tiff*/, void* /*self*/, const char* /*module*/, const char* /*format*/,
                  va_list /*values*/) {
  return kHandled;
}

// Holds a file in memory open in libtiff, at its first page.
class TiffSource {
 public:
  // Throws ImageError for a file that libtiff cannot open. libtiff may take as much memory at once
  // as the limits allow.
  TiffSource(Bytes file, const Limits& limits) : file_(file) {
    const std::unique_ptr<TIFFOpenOptions, decltype(tiff_codec.options_free)> options(
        tiff_codec.options_alloc(), tiff_codec.options_free);
    tiff_codec.options_set_max_single_mem_alloc(options.get(), limits.memory_bytes);
    tiff_codec.options_set_error_handler(options.get(), OnError, this);
    tiff_codec.options_set_warning_handler(options.get(), IgnoreWarning, nullptr);
    tiff_ = tiff_codec.client_open_ext("input", "r", this, Read, Write, Seek, Close, SizeOf, Map,
                                       Unmap, options.get());
    if (tiff_ == nullptr) Refuse();
  }
  TiffSource(const TiffSource&) = delete;
  TiffSource& operator=(const TiffSource&) = delete;
  ~TiffSource() { tiff_codec.close(tiff_); }

  [[nodiscard]] TIFF* tiff() const { return tiff_; }

  // Throws ImageError (kCorrupt) with what libtiff said last.
  [[noreturn]] void Refuse() const {
    throw ImageError(ImageError::Kind::kCorrupt,
                     std::string("the TIFF file is damaged: ") + reason_.data());
  }

 private:
  [[gnu::format(printf, 4, 0)]] static int OnError(TIFF* /*tiff*/, void* self,
                                                   const char* /*module*/, const char* format,
                                                   va_list values) {
    std::array<char, 120>& reason = static_cast<TiffSource*>(self)->reason_;
    std::vsnprintf(reason.data(), reason.size(), format, values);
    return kHandled;
  }

  // How libtiff reads the file.
  static TiffSource& SourceOf(thandle_t handle) { return *static_cast<TiffSource*>(handle); }

  static tmsize_t Read(thandle_t handle, void* to, tmsize_t size) {
    TiffSource& source = SourceOf(handle);
    if (size <= 0 || source.place_ >= source.file_.size()) return 0;
    const std::size_t count =
        std::min<std::size_t>(static_cast<std::size_t>(size), source.file_.size() - source.place_);
    std::memcpy(to, source.file_.data() + source.place_, count);
    source.place_ += count;
    return static_cast<tmsize_t>(count);
  }

  static tmsize_t Write(thandle_t /*handle*/, void* /*from*/, tmsize_t /*size*/) { return 0; }

  static toff_t Seek(thandle_t handle, toff_t offset, int whence) {
    TiffSource& source = SourceOf(handle);
    if (whence == SEEK_SET) source.place_ = offset;
    if (whence == SEEK_CUR) source.place_ += offset;
    if (whence == SEEK_END) source.place_ = source.file_.size() + offset;
    return source.place_;
  }

  static int Close(thandle_t /*handle*/) { return 0; }

  static toff_t SizeOf(thandle_t handle) { return SourceOf(handle).file_.size(); }

  // libtiff does not write through the pointer, since the file is open for reading.
  static int Map(thandle_t handle, void** base, toff_t* size) {
    TiffSource& source = SourceOf(handle);
    *base = const_cast<std::uint8_t*>(source.file_.data());
    *size = source.file_.size();
    return 1;
  }

  static void Unmap(thandle_t /*handle*/, void* /*base*/, toff_t /*size*/) {}

  Bytes file_;
  std::uint64_t place_ = 0;
  std::array<char, 120> reason_{};
  TIFF* tiff_ = nullptr;
};

// Reads one page: row by row from strips, or by rows of tiles.
class TiffReader : public ImageReader {
 public:
  TiffReader(Bytes file, const ReadOptions& options)
      : source_(file, options.limits), layout_(TiffLayoutOf(source_.tiff())) {
    info_.width = info_.full_width = layout_.width;
    info_.height = info_.full_height = layout_.height;
    info_.layout = layout_.IsGray() ? PixelLayout::kGray : PixelLayout::kRgb;
    info_.has_alpha_or_palette = layout_.alpha != TiffAlpha::kNone || !layout_.palette.empty();
    info_.orientation = layout_.orientation;
    info_.density = layout_.density;
    info_.icc = layout_.icc;
    Allocate(options.limits);
  }

  [[nodiscard]] const ImageInfo& info() const override { return info_; }

  [[nodiscard]] const std::uint8_t* NextRow() override {
    const std::uint8_t* stored = layout_.tile_height > 0 ? RowOfTiles() : RowOfStrip();
    ++rows_read_;
    ConvertTiffRow(layout_, stored, row_.data());
    return row_.data();
  }

 private:
  [[nodiscard]] TIFF* tiff() const { return source_.tiff(); }

  // Sides first: only within the limits do their products fit in 64 bits.
  void Allocate(const Limits& limits) {
    CheckLimits(limits, layout_.width, layout_.height, 0);
    std::size_t stored_rows = 1;
    std::size_t tile = 0;
    if (layout_.tile_height > 0) {
      CheckLimits(limits, layout_.tile_width, layout_.tile_height, 0);
      stored_rows = layout_.tile_height;
      tile = layout_.BytesPerPixel() * layout_.tile_width * layout_.tile_height;
    }
    const std::size_t stored = layout_.RowBytes() * stored_rows;
    CheckLimits(limits, layout_.width, layout_.height, static_cast<std::int64_t>(stored + tile));
    stored_.resize(stored);
    tile_.resize(tile);
    row_.resize(static_cast<std::size_t>(layout_.width) *
                static_cast<std::size_t>(ChannelsOf(info_.layout)));
  }

  const std::uint8_t* RowOfStrip() {
    if (tiff_codec.read_scanline(tiff(), stored_.data(), rows_read_, 0) != 1) source_.Refuse();
    return stored_.data();
  }

  const std::uint8_t* RowOfTiles() {
    const std::uint32_t row = rows_read_ % layout_.tile_height;
    if (row == 0) ReadTiles();
    return stored_.data() + layout_.RowBytes() * row;
  }

  void ReadTiles() {
    const auto width = static_cast<std::uint32_t>(layout_.width);
    const std::size_t pixel = layout_.BytesPerPixel();
    const std::size_t tile_row = layout_.tile_width * pixel;
    for (std::uint32_t x = 0; x < width; x += layout_.tile_width) {
      if (tiff_codec.read_tile(tiff(), tile_.data(), x, rows_read_, 0, 0) < 0) source_.Refuse();
      const std::size_t used = std::min(layout_.tile_width, width - x) * pixel;
      for (std::uint32_t y = 0; y < layout_.tile_height; ++y)
        std::memcpy(stored_.data() + layout_.RowBytes() * y + x * pixel,
                    tile_.data() + tile_row * y, used);
      if (width - x <= layout_.tile_width) break;
    }
  }

  TiffSource source_;
  TiffLayout layout_;
  ImageInfo info_;
  std::uint32_t rows_read_ = 0;
  std::vector<std::uint8_t> stored_;  // rows as the file stores them: one, or as many as a tile has
  std::vector<std::uint8_t> tile_;
  std::vector<std::uint8_t> row_;
};

}  // namespace

bool LoadTiff() {
  TiffCodec& codec = tiff_codec;
  const CodecLibrary library("libtiff.so.6");
  return library.Find(codec.options_alloc, "TIFFOpenOptionsAlloc") &&
         library.Find(codec.options_free, "TIFFOpenOptionsFree") &&
         library.Find(codec.options_set_max_single_mem_alloc,
                      "TIFFOpenOptionsSetMaxSingleMemAlloc") &&
         library.Find(codec.options_set_error_handler, "TIFFOpenOptionsSetErrorHandlerExtR") &&
         library.Find(codec.options_set_warning_handler, "TIFFOpenOptionsSetWarningHandlerExtR") &&
         library.Find(codec.client_open_ext, "TIFFClientOpenExt") &&
         library.Find(codec.close, "TIFFClose") && library.Find(codec.get_field, "TIFFGetField") &&
         library.Find(codec.get_field_defaulted, "TIFFGetFieldDefaulted") &&
         library.Find(codec.set_field, "TIFFSetField") &&
         library.Find(codec.is_tiled, "TIFFIsTiled") &&
         library.Find(codec.is_codec_configured, "TIFFIsCODECConfigured") &&
         library.Find(codec.scanline_size, "TIFFScanlineSize64") &&
         library.Find(codec.tile_row_size, "TIFFTileRowSize64") &&
         library.Find(codec.read_scanline, "TIFFReadScanline") &&
         library.Find(codec.read_tile, "TIFFReadTile");
}

std::unique_ptr<ImageReader> OpenTiff(Bytes file, const ReadOptions& options) {
  return std::make_unique<TiffReader>(file, options);
}

}  // namespace keldo::convert
