#include <cstdlib>

#include "convert/pixels/image.h"
#include "convert/readers/reader_tools.h"
#include "convert/readers/readers.h"
#include "util/bytes.h"

namespace keldo::convert {
namespace {

constexpr std::size_t kFileHeader = 14;
constexpr std::uint32_t kOs2Header = 12;
constexpr std::uint32_t kWindowsHeader = 40;
constexpr int kGrayBits = 8;
constexpr int kColourBits = 24;

// What the headers say.
struct Header {
  std::size_t pixels = 0;        // where the rows start
  std::size_t palette = 0;       // where the palette starts
  std::size_t palette_step = 0;  // bytes per entry of the palette
  std::uint32_t colours = 0;     // entries of the palette
  std::int64_t width = 0;
  std::int64_t height = 0;  // negative when the top row comes first
  int bits = 0;
  Density density{};
};

[[noreturn]] void RefuseCutOff() {
  throw ImageError(ImageError::Kind::kCorrupt, "the bitmap is cut off");
}

void RefuseUnless(bool known, const char* reason) {
  if (!known) throw ImageError(ImageError::Kind::kUnsupported, reason);
}

Header ReadOs2Header(const std::uint8_t* header) {
  return {.palette = kFileHeader + kOs2Header,
          .palette_step = 3,
          .colours = 256,
          .width = LittleEndian16(header + 4),
          .height = LittleEndian16(header + 6),
          .bits = LittleEndian16(header + 10)};
}

// Resolutions are in pixels a metre.
Density DensityFrom(const std::uint8_t* header) {
  constexpr double kCentimetres = 100.0;
  const std::uint32_t x = LittleEndian32(header + 24);
  const std::uint32_t y = LittleEndian32(header + 28);
  if (x == 0 || y == 0) return {};
  return {.unit = 2, .x = DensityValue(x / kCentimetres), .y = DensityValue(y / kCentimetres)};
}

Header ReadWindowsHeader(const std::uint8_t* header) {
  RefuseUnless(LittleEndian32(header + 16) == 0, "a compressed bitmap");
  const std::uint32_t colours = LittleEndian32(header + 32);
  return {.palette = kFileHeader + kWindowsHeader,
          .palette_step = 4,
          .colours = colours == 0 ? 256 : colours,
          .width = static_cast<std::int32_t>(LittleEndian32(header + 4)),
          .height = static_cast<std::int32_t>(LittleEndian32(header + 8)),
          .bits = LittleEndian16(header + 14),
          .density = DensityFrom(header)};
}

Header ReadHeader(Bytes file) {
  if (file.size() < kFileHeader + kOs2Header) RefuseCutOff();
  const std::uint8_t* header = file.data() + kFileHeader;
  const std::uint32_t size = LittleEndian32(header);
  RefuseUnless(size == kOs2Header || size == kWindowsHeader, "a bitmap with an unknown header");
  if (file.size() < kFileHeader + size) RefuseCutOff();
  Header result = size == kOs2Header ? ReadOs2Header(header) : ReadWindowsHeader(header);
  result.pixels = LittleEndian32(file.data() + 10);
  if (result.pixels < kFileHeader + size) RefuseCutOff();
  return result;
}

// True when each value stands for itself, as in the gray images that djpeg writes.
bool HasGrayRamp(Bytes file, const Header& header) {
  constexpr std::uint32_t kValues = 256;
  if (header.colours != kValues) return false;
  if (file.size() < header.palette + kValues * header.palette_step) RefuseCutOff();
  for (std::uint32_t i = 0; i < kValues; ++i) {
    const std::uint8_t* entry = file.data() + header.palette + i * header.palette_step;
    if (entry[0] != i || entry[1] != i || entry[2] != i) return false;
  }
  return true;
}

// Returns rows of the file itself.
class BmpReader : public ImageReader {
 public:
  BmpReader(Bytes file, const ReadOptions& options) {
    const Header header = ReadHeader(file);
    RefuseUnless(header.bits == kColourBits || header.bits == kGrayBits, "a bitmap of few colours");
    const std::int64_t height = std::abs(header.height);
    CheckLimits(options.limits, header.width, height, 0);
    const bool gray = header.bits == kGrayBits;
    RefuseUnless(!gray || HasGrayRamp(file, header), "a bitmap with a palette");
    FillInfo(header, gray);
    const std::size_t stride = StrideOf(header);
    const auto rows = static_cast<std::size_t>(height);
    if (header.pixels > file.size() || file.size() - header.pixels < stride * rows) RefuseCutOff();
    const bool top_down = header.height < 0;
    next_ = file.data() + header.pixels + (top_down ? 0 : stride * (rows - 1));
    step_ = top_down ? static_cast<std::ptrdiff_t>(stride) : -static_cast<std::ptrdiff_t>(stride);
  }

  [[nodiscard]] const ImageInfo& info() const override { return info_; }

  [[nodiscard]] const std::uint8_t* NextRow() override { return next_ + step_ * rows_read_++; }

 private:
  // Rows are padded to whole words.
  static std::size_t StrideOf(const Header& header) {
    const auto bytes = static_cast<std::size_t>(header.width * header.bits / 8);
    return (bytes + 3) / 4 * 4;
  }

  void FillInfo(const Header& header, bool gray) {
    info_.width = info_.full_width = static_cast<int>(header.width);
    info_.height = info_.full_height = static_cast<int>(std::abs(header.height));
    info_.layout = gray ? PixelLayout::kGray : PixelLayout::kBgr;
    info_.has_alpha_or_palette = gray;
    info_.density = header.density;
  }

  ImageInfo info_;
  const std::uint8_t* next_ = nullptr;
  std::ptrdiff_t step_ = 0;
  std::ptrdiff_t rows_read_ = 0;
};

}  // namespace

std::unique_ptr<ImageReader> OpenBmp(Bytes file, const ReadOptions& options) {
  return std::make_unique<BmpReader>(file, options);
}

}  // namespace keldo::convert
