#include "convert/readers/tiff_reader.h"

#include <tiffio.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "convert/pixels/image.h"
#include "convert/readers/tiff_layout.h"
#include "convert/readers/tiff_source.h"

namespace keldo::convert {
namespace {

// Reads one page, by rows where it is stored in strips, by rows of tiles otherwise.
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

  // Sides first: their products fit in 64 bits only when they are within the limits.
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
  std::vector<std::uint8_t> stored_;  // rows as the file has them: one, or as many as a tile
  std::vector<std::uint8_t> tile_;
  std::vector<std::uint8_t> row_;
};

}  // namespace

bool LoadTiff() {
  return LoadTiffCodec();
}

std::unique_ptr<ImageReader> OpenTiff(Bytes file, const ReadOptions& options) {
  return std::make_unique<TiffReader>(file, options);
}

}  // namespace keldo::convert
