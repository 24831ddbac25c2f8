#include "convert/readers/tiff_layout.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace keldo::convert {
namespace {

constexpr std::size_t kColours = 256;

[[noreturn]] void RefuseKind(const char* reason) {
  throw ImageError(ImageError::Kind::kUnsupported, reason);
}

template <typename Number>
Number Field(TIFF* tiff, std::uint32_t tag) {
  Number value{};
  tiff_codec.get_field_defaulted(tiff, tag, &value);
  return value;
}

// Camera RAW files are TIFF files whose first page is a small preview, or the sensor data.
void RefuseRawFiles(TIFF* tiff) {
  constexpr std::uint32_t kPreviewOrMask = FILETYPE_REDUCEDIMAGE | FILETYPE_MASK;
  if ((Field<std::uint32_t>(tiff, TIFFTAG_SUBFILETYPE) & kPreviewOrMask) != 0) {
    RefuseKind("a TIFF file that starts with a preview");
  }
  const void* version = nullptr;
  if (tiff_codec.get_field(tiff, TIFFTAG_DNGVERSION, &version) == 1) RefuseKind("a DNG file");
}

std::uint16_t PhotometricOf(TIFF* tiff) {
  std::uint16_t photometric = 0;
  if (tiff_codec.get_field(tiff, TIFFTAG_PHOTOMETRIC, &photometric) != 1) {
    RefuseKind("a TIFF image of an unknown colour space");
  }
  const auto compression = Field<std::uint16_t>(tiff, TIFFTAG_COMPRESSION);
  if (compression == COMPRESSION_OJPEG || tiff_codec.is_codec_configured(compression) == 0) {
    RefuseKind("a TIFF image with an unknown compression");
  }
  // libtiff lets the JPEG library convert it.
  if (photometric == PHOTOMETRIC_YCBCR && compression == COMPRESSION_JPEG) {
    tiff_codec.set_field(tiff, TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
    return PHOTOMETRIC_RGB;
  }
  return photometric;
}

// How many samples a pixel has without alpha.
std::size_t ColourSamples(std::uint16_t photometric) {
  switch (photometric) {
    case PHOTOMETRIC_MINISBLACK:
    case PHOTOMETRIC_MINISWHITE:
    case PHOTOMETRIC_PALETTE:
      return 1;
    case PHOTOMETRIC_RGB:
      return 3;
    default:
      RefuseKind("a TIFF image of an unknown colour space");
  }
}

TiffAlpha AlphaOf(TIFF* tiff, std::size_t samples, std::size_t colour_samples) {
  if (samples == colour_samples) return TiffAlpha::kNone;
  std::uint16_t count = 0;
  const std::uint16_t* kinds = nullptr;
  tiff_codec.get_field_defaulted(tiff, TIFFTAG_EXTRASAMPLES, &count, &kinds);
  if (samples == colour_samples + 1 && count == 1 && kinds != nullptr) {
    if (kinds[0] == EXTRASAMPLE_ASSOCALPHA) return TiffAlpha::kPremultiplied;
    if (kinds[0] == EXTRASAMPLE_UNASSALPHA) return TiffAlpha::kSeparate;
  }
  RefuseKind("a TIFF image with unknown samples");
}

// Palettes have 16 bits; old programs wrote 8-bit values.
std::vector<Background> PaletteOf(TIFF* tiff) {
  std::array<const std::uint16_t*, 3> columns{};
  if (tiff_codec.get_field(tiff, TIFFTAG_COLORMAP, &columns[0], &columns[1], &columns[2]) != 1) {
    throw ImageError(ImageError::Kind::kCorrupt, "the TIFF image has no palette");
  }
  constexpr unsigned kByte = 255;
  const bool words = std::ranges::any_of(columns, [](const std::uint16_t* column) {
    return std::any_of(column, column + kColours, [](unsigned value) { return value > kByte; });
  });
  std::vector<Background> palette(kColours);
  for (std::size_t i = 0; i < kColours; ++i) {
    for (std::size_t c = 0; c < columns.size(); ++c) {
      const unsigned value = columns[c][i];
      constexpr unsigned kWordPerByte = 257;
      palette[i][c] =
          static_cast<std::uint8_t>(words ? (value + kWordPerByte / 2) / kWordPerByte : value);
    }
  }
  return palette;
}

Density DensityOf(TIFF* tiff) {
  float x = 0;
  float y = 0;
  if (tiff_codec.get_field(tiff, TIFFTAG_XRESOLUTION, &x) != 1 ||
      tiff_codec.get_field(tiff, TIFFTAG_YRESOLUTION, &y) != 1 || !(x > 0) || !(y > 0)) {
    return {};
  }
  // In TIFF 1 is none, 2 inch, 3 centimetre; in JFIF each is one less.
  const auto unit = Field<std::uint16_t>(tiff, TIFFTAG_RESOLUTIONUNIT);
  return {.unit = static_cast<std::uint8_t>(unit >= 1 && unit <= 3 ? unit - 1 : 0),
          .x = DensityValue(x),
          .y = DensityValue(y)};
}

std::vector<std::uint8_t> IccOf(TIFF* tiff) {
  std::uint32_t size = 0;
  const void* profile = nullptr;
  if (tiff_codec.get_field(tiff, TIFFTAG_ICCPROFILE, &size, &profile) != 1 || profile == nullptr) {
    return {};
  }
  const auto* bytes = static_cast<const std::uint8_t*>(profile);
  return {bytes, bytes + size};
}

// A side too large for an int exceeds the limits anyway, which the caller checks.
int SideOf(TIFF* tiff, std::uint32_t tag) {
  std::uint32_t side = 0;
  tiff_codec.get_field(tiff, tag, &side);
  return static_cast<int>(std::min<std::uint32_t>(side, INT32_MAX));
}

void ReadSamples(TIFF* tiff, TiffLayout& layout) {
  const std::uint16_t photometric = PhotometricOf(tiff);
  const auto bits = Field<std::uint16_t>(tiff, TIFFTAG_BITSPERSAMPLE);
  const auto format = Field<std::uint16_t>(tiff, TIFFTAG_SAMPLEFORMAT);
  if ((bits != 8 && bits != 16) || format != SAMPLEFORMAT_UINT) {
    RefuseKind("a TIFF image with unknown samples");
  }
  layout.sixteen_bits = bits == 16;
  layout.samples = Field<std::uint16_t>(tiff, TIFFTAG_SAMPLESPERPIXEL);
  if (layout.samples > 1 &&
      Field<std::uint16_t>(tiff, TIFFTAG_PLANARCONFIG) != PLANARCONFIG_CONTIG) {
    RefuseKind("a TIFF image in planes");
  }
  const std::size_t colour_samples = ColourSamples(photometric);
  layout.alpha = AlphaOf(tiff, layout.samples, colour_samples);
  layout.zero_is_white = photometric == PHOTOMETRIC_MINISWHITE;
  if (photometric == PHOTOMETRIC_PALETTE) {
    if (layout.sixteen_bits || layout.samples != 1) RefuseKind("a TIFF image with a large palette");
    layout.palette = PaletteOf(tiff);
  }
}

void ReadTiles(TIFF* tiff, TiffLayout& layout) {
  if (tiff_codec.is_tiled(tiff) == 0) {
    if (tiff_codec.scanline_size(tiff) != layout.RowBytes()) {
      RefuseKind("a TIFF image with rows of an unknown kind");
    }
    return;
  }
  layout.tile_width = Field<std::uint32_t>(tiff, TIFFTAG_TILEWIDTH);
  layout.tile_height = Field<std::uint32_t>(tiff, TIFFTAG_TILELENGTH);
  if (layout.tile_width == 0 || layout.tile_height == 0 || layout.tile_width > INT32_MAX ||
      layout.tile_height > INT32_MAX) {
    throw ImageError(ImageError::Kind::kCorrupt, "the tiles of the TIFF image have no size");
  }
  if (tiff_codec.tile_row_size(tiff) != layout.tile_width * layout.BytesPerPixel()) {
    RefuseKind("a TIFF image with tiles of an unknown kind");
  }
}

std::uint8_t FromSixteen(const std::uint8_t* bytes) {
  std::uint16_t value = 0;
  std::memcpy(&value, bytes, sizeof value);  // libtiff returns words in the machine's order
  constexpr unsigned kByte = 255;
  constexpr unsigned kWord = 65535;
  return static_cast<std::uint8_t>((value * kByte + kWord / 2) / kWord);
}

// One sample of a row, in 8 bits.
std::uint8_t SampleAt(const TiffLayout& layout, const std::uint8_t* stored, std::size_t index) {
  return layout.sixteen_bits ? FromSixteen(stored + 2 * index) : stored[index];
}

void ConvertWithAlpha(const TiffLayout& layout, const std::uint8_t* stored, std::uint8_t* row) {
  constexpr unsigned kOpaque = 255;
  const std::size_t colours = layout.samples - 1;
  for (std::size_t x = 0; x < static_cast<std::size_t>(layout.width); ++x) {
    const unsigned alpha = SampleAt(layout, stored, x * layout.samples + colours);
    for (std::size_t c = 0; c < colours; ++c) {
      unsigned value = SampleAt(layout, stored, x * layout.samples + c);
      if (layout.zero_is_white) value = kOpaque - value;
      const unsigned lit = layout.alpha == TiffAlpha::kPremultiplied
                               ? std::min(value, alpha)
                               : (value * alpha + kOpaque / 2) / kOpaque;
      row[x * colours + c] = static_cast<std::uint8_t>(lit + kOpaque - alpha);
    }
  }
}

}  // namespace

TiffLayout TiffLayoutOf(TIFF* tiff) {
  RefuseRawFiles(tiff);
  TiffLayout layout;
  layout.width = SideOf(tiff, TIFFTAG_IMAGEWIDTH);
  layout.height = SideOf(tiff, TIFFTAG_IMAGELENGTH);
  ReadSamples(tiff, layout);
  ReadTiles(tiff, layout);
  const auto orientation = Field<std::uint16_t>(tiff, TIFFTAG_ORIENTATION);
  layout.orientation = orientation >= 1 && orientation <= 8 ? orientation : 1;
  layout.density = DensityOf(tiff);
  layout.icc = IccOf(tiff);
  return layout;
}

void ConvertTiffRow(const TiffLayout& layout, const std::uint8_t* stored, std::uint8_t* row) {
  if (layout.alpha != TiffAlpha::kNone) {
    ConvertWithAlpha(layout, stored, row);
    return;
  }
  const auto width = static_cast<std::size_t>(layout.width);
  if (!layout.palette.empty()) {
    for (std::size_t x = 0; x < width; ++x)
      std::memcpy(row + 3 * x, layout.palette[stored[x]].data(), 3);
    return;
  }
  constexpr std::uint8_t kInvert = 0xFF;
  const std::uint8_t flip = layout.zero_is_white ? kInvert : 0;
  for (std::size_t i = 0; i < width * layout.samples; ++i)
    row[i] = SampleAt(layout, stored, i) ^ flip;
}

}  // namespace keldo::convert
