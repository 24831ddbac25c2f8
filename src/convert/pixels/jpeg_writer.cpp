#include "convert/pixels/jpeg_writer.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>
// Needs the types of cstdio.
#include <jpeglib.h>
// Needs jpeglib.h.
#include <jerror.h>

#include "convert/pixels/image.h"

namespace keldo::convert {
namespace {

constexpr int kFullChromaFrom = 90;
// Below this many pixels, tables made for the file save more bytes than they cost.
constexpr int kSmall = 40'000;
constexpr std::size_t kPiece = std::size_t{64} << 10;

// What libjpeg passes to its callbacks; `base` comes first so that its pointer leads here.
struct ErrorTrap {
  jpeg_error_mgr base;
  std::jmp_buf back;
};

[[noreturn]] void JumpBack(j_common_ptr codec) {
  std::longjmp(reinterpret_cast<ErrorTrap*>(codec->err)->back, 1);
}

// The file in pieces, which unlike one growing buffer are never copied. `base` comes first so that
// its pointer leads here.
struct Destination {
  jpeg_destination_mgr base;
  std::vector<std::unique_ptr<JOCTET[]>>* pieces;
  std::size_t in_last;  // bytes of the last piece, set at the end
};

Destination& DestinationOf(j_compress_ptr codec) {
  return *reinterpret_cast<Destination*>(codec->dest);
}

// False when memory runs out: an exception must not pass through libjpeg.
bool AddPiece(Destination& to) noexcept {
  try {
    to.pieces->push_back(std::make_unique_for_overwrite<JOCTET[]>(kPiece));
  } catch (const std::bad_alloc&) {
    return false;
  }
  to.base.next_output_byte = to.pieces->back().get();
  to.base.free_in_buffer = kPiece;
  return true;
}

void StartFile(j_compress_ptr codec) {
  if (!AddPiece(DestinationOf(codec))) ERREXIT1(codec, JERR_OUT_OF_MEMORY, 0);
}

boolean ContinueFile(j_compress_ptr codec) {
  if (!AddPiece(DestinationOf(codec))) ERREXIT1(codec, JERR_OUT_OF_MEMORY, 0);
  return TRUE;
}

void EndFile(j_compress_ptr codec) {
  Destination& to = DestinationOf(codec);
  to.in_last = kPiece - to.base.free_in_buffer;
}

[[noreturn]] void FailToWrite() {
  throw ImageError(ImageError::Kind::kOutput,
                   std::string("a thumbnail cannot be written: ") + std::strerror(errno));
}

void Write(int descriptor, Bytes content) {
  while (!content.empty()) {
    const ssize_t written = write(descriptor, content.data(), content.size());
    if (written < 0 && errno != EINTR) FailToWrite();
    if (written > 0) content = content.subspan(static_cast<std::size_t>(written));
  }
}

// Frees what libjpeg holds, also where a constructor ends early.
struct Compressor : jpeg_compress_struct {
  Compressor() : jpeg_compress_struct() {}
  Compressor(const Compressor&) = delete;
  Compressor& operator=(const Compressor&) = delete;
  ~Compressor() { jpeg_destroy_compress(this); }
};

class JpegWriter : public RowSink {
 public:
  JpegWriter(const JpegFormat& format, int descriptor) : format_(format), descriptor_(descriptor) {
    codec_.err = jpeg_std_error(&trap_.base);
    trap_.base.error_exit = JumpBack;
    Guarded(Start);
  }

  void AddRow(const std::uint8_t* row) override {
    row_ = row;
    Guarded(WriteRow);
  }

  void Finish() override {
    Guarded(Complete);
    // EINVAL: the output is not a regular file, so there is nothing to cut off.
    if (ftruncate(descriptor_, 0) != 0 && errno != EINVAL) FailToWrite();
    for (const auto& piece : pieces_)
      Write(descriptor_, {piece.get(), piece == pieces_.back() ? destination_.in_last : kPiece});
  }

 private:
  // Runs calls into libjpeg, whose errors return by longjmp: `calls` must own nothing.
  void Guarded(void (*calls)(JpegWriter&)) {
    if (setjmp(trap_.back) != 0) {  // NOLINT(cert-err52-cpp): libjpeg offers nothing else
      std::array<char, JMSG_LENGTH_MAX> text{};
      trap_.base.format_message(reinterpret_cast<j_common_ptr>(&codec_), text.data());
      throw ImageError(ImageError::Kind::kOutput, text.data());
    }
    calls(*this);
  }

  static void Start(JpegWriter& writer) {
    jpeg_compress_struct& codec = writer.codec_;
    jpeg_create_compress(&codec);
    writer.destination_.base.init_destination = StartFile;
    writer.destination_.base.empty_output_buffer = ContinueFile;
    writer.destination_.base.term_destination = EndFile;
    writer.destination_.pieces = &writer.pieces_;
    codec.dest = &writer.destination_.base;
    writer.SetFormat();
    jpeg_start_compress(&codec, TRUE);
    const Bytes icc = writer.format_.icc;
    if (!icc.empty()) jpeg_write_icc_profile(&codec, icc.data(), static_cast<unsigned>(icc.size()));
  }

  static void WriteRow(JpegWriter& writer) {
    // libjpeg does not write to the row; its interface just lacks the const.
    auto* row = const_cast<JSAMPROW>(writer.row_);
    static_cast<void>(jpeg_write_scanlines(&writer.codec_, &row, 1));
  }

  static void Complete(JpegWriter& writer) { jpeg_finish_compress(&writer.codec_); }

  void SetFormat() {
    codec_.image_width = static_cast<JDIMENSION>(format_.size.width);
    codec_.image_height = static_cast<JDIMENSION>(format_.size.height);
    codec_.input_components = ChannelsOf(format_.layout);
    codec_.in_color_space = InputColours();
    jpeg_set_defaults(&codec_);
    jpeg_set_quality(&codec_, format_.quality, TRUE);
    codec_.dct_method = JDCT_IFAST;
    SetSampling();
    codec_.density_unit = format_.density.unit;
    codec_.X_density = format_.density.x;
    codec_.Y_density = format_.density.y;
    if (format_.own_tables || format_.size.width * format_.size.height < kSmall) {
      codec_.optimize_coding = TRUE;
    } else {
      SetThumbnailTables(codec_);
    }
  }

  [[nodiscard]] J_COLOR_SPACE InputColours() const {
    switch (format_.layout) {
      case PixelLayout::kGray:
        return JCS_GRAYSCALE;
      case PixelLayout::kBgr:
        return JCS_EXT_BGR;
      default:
        return JCS_RGB;
    }
  }

  void SetSampling() {
    if (format_.layout == PixelLayout::kGray) return;
    const int chroma = format_.quality >= kFullChromaFrom ? 1 : 2;
    const JpegSampling usual{{chroma, 1, 1}, {chroma, 1, 1}};
    const JpegSampling sampling = format_.sampling.value_or(usual);
    for (std::size_t i = 0; i < sampling.horizontal.size(); ++i) {
      codec_.comp_info[i].h_samp_factor = sampling.horizontal.at(i);
      codec_.comp_info[i].v_samp_factor = sampling.vertical.at(i);
    }
  }

  JpegFormat format_;
  int descriptor_;
  std::vector<std::unique_ptr<JOCTET[]>> pieces_;
  const std::uint8_t* row_ = nullptr;
  ErrorTrap trap_{};
  Destination destination_{};
  Compressor codec_;
};

// Holds gray rows back until the first coloured pixel decides what is written. Most photos have one
// in their first row.
class GrayFinder : public RowSink {
 public:
  GrayFinder(const JpegFormat& format, int descriptor) : format_(format), descriptor_(descriptor) {}

  void AddRow(const std::uint8_t* row) override {
    if (!writer_ && !KeepIfGray(row)) WriteInColour();
    if (writer_) writer_->AddRow(row);
  }

  void Finish() override {
    if (!writer_) WriteInGray();
    writer_->Finish();
  }

 private:
  bool KeepIfGray(const std::uint8_t* row) {
    const std::size_t before = gray_.size();
    for (int x = 0; x < format_.size.width; ++x, row += 3) {
      if (row[0] != row[1] || row[1] != row[2]) {
        gray_.resize(before);
        return false;
      }
      gray_.push_back(row[0]);
    }
    return true;
  }

  void WriteInColour() {
    writer_ = std::make_unique<JpegWriter>(format_, descriptor_);
    const auto width = static_cast<std::size_t>(format_.size.width);
    std::vector<std::uint8_t> row(3 * width);
    for (std::size_t start = 0; start < gray_.size(); start += width) {
      for (std::size_t i = 0; i < row.size(); ++i)
        row[i] = gray_[start + i / 3];
      writer_->AddRow(row.data());
    }
    gray_ = {};
  }

  void WriteInGray() {
    JpegFormat format = format_;
    format.layout = PixelLayout::kGray;
    writer_ = std::make_unique<JpegWriter>(format, descriptor_);
    const auto width = static_cast<std::size_t>(format_.size.width);
    for (std::size_t start = 0; start < gray_.size(); start += width)
      writer_->AddRow(gray_.data() + start);
  }

  JpegFormat format_;
  int descriptor_;
  std::vector<std::uint8_t> gray_;
  std::unique_ptr<JpegWriter> writer_;
};

}  // namespace

std::unique_ptr<RowSink> MakeJpegWriter(const JpegFormat& format, int descriptor) {
  if (format.layout == PixelLayout::kGray) return std::make_unique<JpegWriter>(format, descriptor);
  return std::make_unique<GrayFinder>(format, descriptor);
}

}  // namespace keldo::convert
