#include <array>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "convert/readers/readers.h"
// Needs the types of cstdio.
#include <jpeglib.h>
// Needs jpeglib.h.
#include <jerror.h>

#include "convert/pixels/image.h"
#include "convert/pixels/plan.h"
#include "convert/readers/reader_tools.h"

namespace keldo::convert {
namespace {

constexpr std::string_view kExifMark("Exif\0\0", 6);
constexpr unsigned kLongestMarker = 0xFFFF;
constexpr int kApp1 = JPEG_APP0 + 1;
constexpr int kApp2 = JPEG_APP0 + 2;
// Each scan of a progressive file costs a pass over the whole image, however short the scan is.
// Cameras and programs write about ten.
constexpr int kMostScans = 500;
// A smaller image is decoded at full size: for a few milliseconds, its thumbnails are made of the
// same samples that the usual reduction picks.
constexpr std::int64_t kAlwaysFull = 4'000'000;

// What libjpeg passes to its callbacks; `base` comes first so that its pointer leads here.
struct ErrorTrap {
  jpeg_error_mgr base;
  std::jmp_buf back;
  bool cut_off_early;
  bool too_many_scans;
};

ErrorTrap& TrapOf(j_common_ptr codec) {
  return *reinterpret_cast<ErrorTrap*>(codec->err);
}

[[noreturn]] void JumpBack(j_common_ptr codec) {
  std::longjmp(TrapOf(codec).back, 1);
}

void IgnoreMessage(j_common_ptr /*codec*/) {}

// The file has ended. What is missing is filled with gray, unless no row has come yet.
boolean EndOfFile(j_decompress_ptr codec) {
  static constexpr std::array<JOCTET, 2> kEndMarker{0xFF, JPEG_EOI};
  if (codec->input_scan_number <= 1 && codec->input_iMCU_row == 0) {
    TrapOf(reinterpret_cast<j_common_ptr>(codec)).cut_off_early = true;
    JumpBack(reinterpret_cast<j_common_ptr>(codec));
  }
  codec->src->next_input_byte = kEndMarker.data();
  codec->src->bytes_in_buffer = kEndMarker.size();
  return TRUE;
}

void WatchScans(j_common_ptr codec) {
  if (reinterpret_cast<j_decompress_ptr>(codec)->input_scan_number <= kMostScans) return;
  TrapOf(codec).too_many_scans = true;
  JumpBack(codec);
}

bool IsOtherKind(int message) {
  return message == JERR_BAD_PRECISION || message == JERR_SOF_UNSUPPORTED ||
         message == JERR_ARITH_NOTIMPL || message == JERR_CONVERSION_NOTIMPL ||
         message == JERR_COMPONENT_COUNT;
}

// Frees what libjpeg holds, also where a constructor ends early.
struct Decompressor : jpeg_decompress_struct {
  Decompressor() : jpeg_decompress_struct() {}
  Decompressor(const Decompressor&) = delete;
  Decompressor& operator=(const Decompressor&) = delete;
  ~Decompressor() { jpeg_destroy_decompress(this); }
};

class JpegReader : public ImageReader {
 public:
  JpegReader(Bytes file, const ReadOptions& options) : file_(file) {
    codec_.err = jpeg_std_error(&trap_.base);
    trap_.base.error_exit = JumpBack;
    trap_.base.output_message = IgnoreMessage;
    Guarded(Create);
    progress_.progress_monitor = WatchScans;
    codec_.progress = &progress_;
    Guarded(OpenSource);
    codec_.src->fill_input_buffer = EndOfFile;
    ReadHeader(options);
  }

  [[nodiscard]] const ImageInfo& info() const override { return info_; }

  [[nodiscard]] const std::uint8_t* NextRow() override {
    Guarded(ReadRow);
    return codec_.out_color_space == JCS_CMYK ? RowFromCmyk() : decoded_.data();
  }

 private:
  // Runs calls into libjpeg, whose errors return by longjmp: `calls` must own nothing.
  void Guarded(void (*calls)(JpegReader&)) {
    if (setjmp(trap_.back) != 0) Fail();  // NOLINT(cert-err52-cpp): libjpeg offers nothing else
    calls(*this);
  }

  [[noreturn]] void Fail() {
    if (trap_.cut_off_early) {
      throw ImageError(ImageError::Kind::kCorrupt, codec_.input_scan_number == 0
                                                       ? "the file ends in its header"
                                                       : "the file ends before its first rows");
    }
    if (trap_.too_many_scans) {
      throw ImageError(ImageError::Kind::kLimit,
                       "the file has more than " + std::to_string(kMostScans) + " scans");
    }
    std::array<char, JMSG_LENGTH_MAX> text{};
    trap_.base.format_message(reinterpret_cast<j_common_ptr>(&codec_), text.data());
    throw ImageError(IsOtherKind(trap_.base.msg_code) ? ImageError::Kind::kUnsupported
                                                      : ImageError::Kind::kCorrupt,
                     text.data());
  }

  static void Create(JpegReader& reader) { jpeg_create_decompress(&reader.codec_); }

  static void OpenSource(JpegReader& reader) {
    jpeg_mem_src(&reader.codec_, reader.file_.data(), reader.file_.size());
  }

  static void ReadMarkers(JpegReader& reader) {
    jpeg_save_markers(&reader.codec_, kApp1, kLongestMarker);
    jpeg_save_markers(&reader.codec_, kApp2, kLongestMarker);
    static_cast<void>(jpeg_read_header(&reader.codec_, TRUE));
  }

  static void Start(JpegReader& reader) {
    static_cast<void>(jpeg_start_decompress(&reader.codec_));
  }

  static void ReadRow(JpegReader& reader) {
    JSAMPROW row = reader.decoded_.data();
    static_cast<void>(jpeg_read_scanlines(&reader.codec_, &row, 1));
  }

  void ReadHeader(const ReadOptions& options) {
    Guarded(ReadMarkers);
    info_.full_width = static_cast<int>(codec_.image_width);
    info_.full_height = static_cast<int>(codec_.image_height);
    CheckSize(options.limits);
    ChooseColours();
    ChooseScale(options.first_box);
    const Bytes exif = Exif();
    info_.orientation = OrientationOf(exif);
    info_.density =
        DensityWithExif(exif, {codec_.density_unit, codec_.X_density, codec_.Y_density});
    KeepIcc();
    codec_.mem->max_memory_to_use = static_cast<long>(options.limits.memory_bytes);
    Guarded(Start);
    info_.width = static_cast<int>(codec_.output_width);
    info_.height = static_cast<int>(codec_.output_height);
    decoded_.resize(static_cast<std::size_t>(codec_.output_width) *
                    static_cast<std::size_t>(codec_.output_components));
  }

  // A file of several scans is held whole in memory, as 16-bit coefficients.
  void CheckSize(const Limits& limits) {
    const std::int64_t samples = std::int64_t{info_.full_width} * info_.full_height;
    std::int64_t held = 0;
    if (jpeg_has_multiple_scans(&codec_) != FALSE) held = samples * codec_.num_components * 2;
    CheckLimits(limits, info_.full_width, info_.full_height, held);
  }

  void ChooseColours() {
    switch (codec_.jpeg_color_space) {
      case JCS_GRAYSCALE:
        codec_.out_color_space = JCS_GRAYSCALE;
        info_.layout = PixelLayout::kGray;
        // A gray file counts as one with a palette of grays.
        info_.has_alpha_or_palette = true;
        return;
      case JCS_YCbCr:
      case JCS_RGB:
        codec_.out_color_space = JCS_RGB;
        KeepSampling();
        return;
      case JCS_CMYK:
      case JCS_YCCK:
        codec_.out_color_space = JCS_CMYK;
        return;
      default:
        throw ImageError(ImageError::Kind::kUnsupported, "the file has unusual colour components");
    }
  }

  void KeepSampling() {
    JpegSampling& sampling = info_.sampling.emplace();
    for (std::size_t i = 0; i < sampling.horizontal.size(); ++i) {
      sampling.horizontal.at(i) = codec_.comp_info[i].h_samp_factor;
      sampling.vertical.at(i) = codec_.comp_info[i].v_samp_factor;
    }
  }

  void ChooseScale(const Box& first_box) {
    const Size full{info_.full_width, info_.full_height};
    const Size needed = ThumbnailSize(full, first_box);
    codec_.scale_num = 1;
    codec_.scale_denom = 1;
    if (std::int64_t{full.width} * full.height < kAlwaysFull) return;
    for (const int divisor : {8, 4, 2}) {
      codec_.scale_denom = static_cast<unsigned>(divisor);
      const Size reduced{(full.width + divisor - 1) / divisor,
                         (full.height + divisor - 1) / divisor};
      if (reduced.width >= needed.width && reduced.height >= needed.height) return;
    }
    codec_.scale_denom = 1;
  }

  // From its byte order mark on; empty for none.
  Bytes Exif() {
    for (jpeg_saved_marker_ptr marker = codec_.marker_list; marker != nullptr;
         marker = marker->next) {
      const Bytes data(marker->data, marker->data_length);
      if (marker->marker == kApp1 && data.size() > kExifMark.size() &&
          StartsWith(data, kExifMark)) {
        return data.subspan(kExifMark.size());
      }
    }
    return {};
  }

  static void ReadIcc(JpegReader& reader) {
    static_cast<void>(jpeg_read_icc_profile(&reader.codec_, &reader.icc_, &reader.icc_length_));
  }

  void KeepIcc() {
    // CMYK rows are converted to RGB, which the profile of the inks does not describe.
    if (codec_.out_color_space == JCS_CMYK) return;
    Guarded(ReadIcc);
    if (icc_ == nullptr) return;
    info_.icc.assign(icc_, icc_ + icc_length_);
    std::free(icc_);  // NOLINT(cppcoreguidelines-no-malloc): libjpeg's allocation
  }

  // Every program that writes such files stores them inverted: as light, not as ink.
  const std::uint8_t* RowFromCmyk() {
    constexpr int kFull = 255;
    std::uint8_t* to = decoded_.data();
    for (const std::uint8_t* from = decoded_.data(); from < &decoded_.back(); from += 4) {
      for (int i = 0; i < 3; ++i)
        *to++ = static_cast<std::uint8_t>((from[i] * from[3] + kFull / 2) / kFull);
    }
    return decoded_.data();
  }

  Bytes file_;
  ErrorTrap trap_{};
  Decompressor codec_;
  jpeg_progress_mgr progress_{};
  JOCTET* icc_ = nullptr;
  unsigned icc_length_ = 0;
  ImageInfo info_;
  std::vector<std::uint8_t> decoded_;
};

}  // namespace

std::unique_ptr<ImageReader> OpenJpeg(Bytes file, const ReadOptions& options) {
  return std::make_unique<JpegReader>(file, options);
}

}  // namespace keldo::convert
