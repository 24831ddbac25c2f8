#include <png.h>

#include <array>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "convert/pixels/image.h"
#include "convert/readers/reader_tools.h"
#include "convert/readers/readers.h"
#include "util/bytes.h"

namespace keldo::convert {
namespace {

struct PngCodec {
  decltype(&::png_create_read_struct) create_read_struct;
  decltype(&::png_create_info_struct) create_info_struct;
  decltype(&::png_destroy_read_struct) destroy_read_struct;
  decltype(&::png_set_read_fn) set_read_fn;
  decltype(&::png_get_io_ptr) get_io_ptr;
  decltype(&::png_get_error_ptr) get_error_ptr;
  decltype(&::png_set_chunk_malloc_max) set_chunk_malloc_max;
  decltype(&::png_set_keep_unknown_chunks) set_keep_unknown_chunks;
  decltype(&::png_read_info) read_info;
  decltype(&::png_get_IHDR) get_ihdr;
  decltype(&::png_get_gAMA_fixed) get_gama_fixed;
  decltype(&::png_get_bKGD) get_bkgd;
  decltype(&::png_get_pHYs) get_phys;
  decltype(&::png_get_iCCP) get_iccp;
  decltype(&::png_get_channels) get_channels;
  decltype(&::png_set_expand) set_expand;
  decltype(&::png_set_scale_16) set_scale_16;
  decltype(&::png_set_interlace_handling) set_interlace_handling;
  decltype(&::png_read_update_info) read_update_info;
  decltype(&::png_read_row) read_row;
  decltype(&::png_read_image) read_image;
  decltype(&::png_read_end) read_end;
};

constinit PngCodec codec{};

// Where libpng jumps to when it gives up, and what it reads from. Plain values only: the jump runs
// no destructors.
struct Session {
  std::jmp_buf back;
  std::array<char, 80> reason;
  const std::uint8_t* next;
  std::size_t left;
};

[[noreturn]] void OnError(png_structp png, png_const_charp message) {
  auto* session = static_cast<Session*>(codec.get_error_ptr(png));
  std::snprintf(session->reason.data(), session->reason.size(), "%s", message);
  std::longjmp(session->back, 1);
}

// libpng repairs what it only warns about.
void OnWarning(png_structp /*png*/, png_const_charp /*message*/) {}

void Read(png_structp png, png_bytep to, std::size_t size) {
  auto* session = static_cast<Session*>(codec.get_io_ptr(png));
  if (session->left < size) OnError(png, "it is cut off");
  std::memcpy(to, session->next, size);
  session->next += size;
  session->left -= size;
}

// Runs calls of libpng. The work must own nothing that has a destructor.
template <typename Work>
void Guarded(Session& session, const Work& work) {
  if (setjmp(session.back) != 0) {
    throw ImageError(ImageError::Kind::kCorrupt,
                     std::string("the PNG file is damaged: ") + session.reason.data());
  }
  work();
}

// The parts of the header that decide limits and layout.
struct Header {
  png_uint_32 width = 0;
  png_uint_32 height = 0;
  int depth = 0;
  int colour = 0;
  int interlace = 0;
};

// A sample of a background of `depth` bits, in 8 bits.
std::uint8_t EightBits(unsigned sample, int depth) {
  constexpr unsigned kMost = 255;
  const unsigned most = (1U << static_cast<unsigned>(depth)) - 1;
  return static_cast<std::uint8_t>(((sample & most) * kMost + most / 2) / most);
}

class PngReader : public ImageReader {
 public:
  PngReader(Bytes file, const ReadOptions& options) {
    CheckFirstChunk(file, options.limits);
    session_.next = file.data();
    session_.left = file.size();
    png_ = codec.create_read_struct(PNG_LIBPNG_VER_STRING, &session_, OnError, OnWarning);
    if (png_ == nullptr) throw ImageError(ImageError::Kind::kUnsupported, "libpng does not start");
    try {
      Prepare(options.limits);
    } catch (...) {
      codec.destroy_read_struct(&png_, &png_info_, nullptr);
      throw;
    }
  }
  PngReader(const PngReader&) = delete;
  PngReader& operator=(const PngReader&) = delete;
  ~PngReader() override { codec.destroy_read_struct(&png_, &png_info_, nullptr); }

  [[nodiscard]] const ImageInfo& info() const override { return info_; }

  [[nodiscard]] const std::uint8_t* NextRow() override {
    if (interlaced_ && rows_read_ == 0) ReadWhole();
    std::uint8_t* row = pixels_.data();
    if (interlaced_) {
      row += stride_ * static_cast<std::size_t>(rows_read_);
    } else {
      Guarded(session_, [&] { codec.read_row(png_, row, nullptr); });
    }
    // A file that is damaged after its pixels gives no thumbnail either.
    if (++rows_read_ == info_.height) Guarded(session_, [&] { codec.read_end(png_, nullptr); });
    return Flattened(row);
  }

 private:
  // libpng has limits of its own, but reports larger images as damaged.
  static void CheckFirstChunk(Bytes file, const Limits& limits) {
    constexpr std::size_t kWidth = 16;
    constexpr std::size_t kHeight = 20;
    if (file.size() < kHeight + 4) {
      throw ImageError(ImageError::Kind::kCorrupt, "the PNG file ends in its header");
    }
    CheckLimits(limits, BigEndian32(file.data() + kWidth), BigEndian32(file.data() + kHeight), 0);
  }

  void Prepare(const Limits& limits) {
    Header header;
    Guarded(session_, [&] {
      png_info_ = codec.create_info_struct(png_);
      // A compressed colour profile can be far larger than the file.
      constexpr png_alloc_size_t kLargestChunk = png_alloc_size_t{16} << 20U;
      codec.set_chunk_malloc_max(png_, kLargestChunk);
      // Text may claim any length, and would be read all the same.
      constexpr std::string_view kText("tEXt\0zTXt\0iTXt\0", 15);
      codec.set_keep_unknown_chunks(png_, PNG_HANDLE_CHUNK_NEVER,
                                    reinterpret_cast<png_const_bytep>(kText.data()), 3);
      codec.set_read_fn(png_, &session_, Read);
      codec.read_info(png_, png_info_);
      codec.get_ihdr(png_, png_info_, &header.width, &header.height, &header.depth, &header.colour,
                     &header.interlace, nullptr, nullptr);
    });
    RefuseLinearLight();
    ReadBackground(header);
    ReadDensity();
    ReadProfile();
    Guarded(session_, [&] {
      codec.set_expand(png_);
      codec.set_scale_16(png_);
      codec.set_interlace_handling(png_);
      codec.read_update_info(png_, png_info_);
      channels_ = codec.get_channels(png_, png_info_);
    });
    FillInfo(header);
    Allocate(limits);
  }

  // ImageMagick resizes such images in linear light; imitating that here would be a guess.
  void RefuseLinearLight() {
    constexpr png_fixed_point kMostlyLinear = 75000;
    png_fixed_point gamma = 0;
    Guarded(session_, [&] { codec.get_gama_fixed(png_, png_info_, &gamma); });
    if (gamma > kMostlyLinear) {
      throw ImageError(ImageError::Kind::kUnsupported, "a PNG image in linear light");
    }
  }

  void ReadBackground(const Header& header) {
    png_color_16p colour = nullptr;
    Guarded(session_, [&] { codec.get_bkgd(png_, png_info_, &colour); });
    if (colour == nullptr) return;
    if ((header.colour & PNG_COLOR_MASK_COLOR) == 0) {
      background_.fill(EightBits(colour->gray, header.depth));
    } else {
      const int depth = header.colour == PNG_COLOR_TYPE_PALETTE ? 8 : header.depth;
      background_ = {EightBits(colour->red, depth), EightBits(colour->green, depth),
                     EightBits(colour->blue, depth)};
    }
  }

  void ReadDensity() {
    constexpr double kCentimetres = 100.0;
    png_uint_32 x = 0;
    png_uint_32 y = 0;
    int unit = PNG_RESOLUTION_UNKNOWN;
    Guarded(session_, [&] { codec.get_phys(png_, png_info_, &x, &y, &unit); });
    if (x == 0 || y == 0) return;
    if (unit == PNG_RESOLUTION_METER) {
      info_.density = {2, DensityValue(x / kCentimetres), DensityValue(y / kCentimetres)};
    } else {
      info_.density = {0, DensityValue(x), DensityValue(y)};
    }
  }

  void ReadProfile() {
    png_charp name = nullptr;
    int compression = 0;
    png_bytep profile = nullptr;
    png_uint_32 size = 0;
    Guarded(session_,
            [&] { codec.get_iccp(png_, png_info_, &name, &compression, &profile, &size); });
    if (profile != nullptr) info_.icc.assign(profile, profile + size);
  }

  void FillInfo(const Header& header) {
    info_.width = info_.full_width = static_cast<int>(header.width);
    info_.height = info_.full_height = static_cast<int>(header.height);
    info_.layout = channels_ <= 2 ? PixelLayout::kGray : PixelLayout::kRgb;
    // Gray of up to 8 bits counts as a palette of grays.
    const bool gray_palette = header.colour == PNG_COLOR_TYPE_GRAY && header.depth <= 8;
    info_.has_alpha_or_palette =
        channels_ == 2 || channels_ == 4 || header.colour == PNG_COLOR_TYPE_PALETTE || gray_palette;
    interlaced_ = header.interlace != PNG_INTERLACE_NONE;
  }

  void Allocate(const Limits& limits) {
    stride_ = static_cast<std::size_t>(info_.width) * channels_;
    const std::size_t rows = interlaced_ ? static_cast<std::size_t>(info_.height) : 1;
    CheckLimits(limits, info_.width, info_.height, static_cast<std::int64_t>(stride_ * rows));
    pixels_.resize(stride_ * rows);
  }

  void ReadWhole() {
    std::vector<png_bytep> rows(static_cast<std::size_t>(info_.height));
    for (std::size_t y = 0; y < rows.size(); ++y)
      rows[y] = pixels_.data() + stride_ * y;
    Guarded(session_, [&] { codec.read_image(png_, rows.data()); });
  }

  // In place, since pixels only become smaller.
  const std::uint8_t* Flattened(std::uint8_t* row) const {
    const auto pixels = static_cast<std::size_t>(info_.width);
    if (channels_ == 2) FlattenGray(row, pixels, background_, row);
    if (channels_ == 4) FlattenRgb(row, pixels, background_, row);
    return row;
  }

  Session session_{};
  png_structp png_ = nullptr;
  png_infop png_info_ = nullptr;
  ImageInfo info_;
  Background background_ = kWhite;
  std::size_t channels_ = 0;
  bool interlaced_ = false;
  std::size_t stride_ = 0;
  int rows_read_ = 0;
  std::vector<std::uint8_t> pixels_;  // one row, or all of an interlaced image
};

}  // namespace

bool LoadPng() {
  const CodecLibrary library("libpng16.so.16");
  return library.Find(codec.create_read_struct, "png_create_read_struct") &&
         library.Find(codec.create_info_struct, "png_create_info_struct") &&
         library.Find(codec.destroy_read_struct, "png_destroy_read_struct") &&
         library.Find(codec.set_read_fn, "png_set_read_fn") &&
         library.Find(codec.get_io_ptr, "png_get_io_ptr") &&
         library.Find(codec.get_error_ptr, "png_get_error_ptr") &&
         library.Find(codec.set_chunk_malloc_max, "png_set_chunk_malloc_max") &&
         library.Find(codec.set_keep_unknown_chunks, "png_set_keep_unknown_chunks") &&
         library.Find(codec.read_info, "png_read_info") &&
         library.Find(codec.get_ihdr, "png_get_IHDR") &&
         library.Find(codec.get_gama_fixed, "png_get_gAMA_fixed") &&
         library.Find(codec.get_bkgd, "png_get_bKGD") &&
         library.Find(codec.get_phys, "png_get_pHYs") &&
         library.Find(codec.get_iccp, "png_get_iCCP") &&
         library.Find(codec.get_channels, "png_get_channels") &&
         library.Find(codec.set_expand, "png_set_expand") &&
         library.Find(codec.set_scale_16, "png_set_scale_16") &&
         library.Find(codec.set_interlace_handling, "png_set_interlace_handling") &&
         library.Find(codec.read_update_info, "png_read_update_info") &&
         library.Find(codec.read_row, "png_read_row") &&
         library.Find(codec.read_image, "png_read_image") &&
         library.Find(codec.read_end, "png_read_end");
}

std::unique_ptr<ImageReader> OpenPng(Bytes file, const ReadOptions& options) {
  return std::make_unique<PngReader>(file, options);
}

}  // namespace keldo::convert
