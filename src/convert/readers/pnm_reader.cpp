#include <algorithm>
#include <vector>

#include "convert/pixels/image.h"
#include "convert/readers/readers.h"
#include "util/bytes.h"

namespace keldo::convert {
namespace {

constexpr unsigned kMostOfByte = 255;
constexpr unsigned kMostOfWord = 65535;

[[noreturn]] void Refuse(const char* reason) {
  throw ImageError(ImageError::Kind::kCorrupt, reason);
}

// The text at the start of the file: numbers, separated by white space and comments.
class HeaderText {
 public:
  explicit HeaderText(Bytes file) : file_(file) {}

  [[nodiscard]] std::int64_t Number() {
    SkipBlanks();
    constexpr std::int64_t kTooLarge = 1'000'000'000;
    if (!IsDigit(Peek())) Refuse("the header of the pixmap is damaged");
    std::int64_t number = 0;
    while (IsDigit(Peek()) && number < kTooLarge) {
      number = number * 10 + (file_[place_] - '0');
      ++place_;
    }
    return number;
  }

  // A single white space separates the last number from the pixels.
  [[nodiscard]] std::size_t PixelsStart() const {
    if (!IsBlank(Peek())) Refuse("the header of the pixmap is damaged");
    return place_ + 1;
  }

 private:
  static bool IsDigit(int byte) { return byte >= '0' && byte <= '9'; }
  static bool IsBlank(int byte) { return byte == ' ' || (byte >= '\t' && byte <= '\r'); }

  [[nodiscard]] int Peek() const { return place_ < file_.size() ? file_[place_] : -1; }

  void SkipBlanks() {
    while (IsBlank(Peek()) || Peek() == '#') {
      if (Peek() == '#') {
        while (Peek() != '\n' && Peek() != -1)
          ++place_;
      } else {
        ++place_;
      }
    }
  }

  Bytes file_;
  std::size_t place_ = 2;  // after "P5" or "P6"
};

// Returns rows of the file itself where they have 8 bits per sample, and scaled copies otherwise.
class PnmReader : public ImageReader {
 public:
  PnmReader(Bytes file, const ReadOptions& options) {
    HeaderText header(file);
    const std::int64_t width = header.Number();
    const std::int64_t height = header.Number();
    const std::int64_t most = header.Number();
    CheckLimits(options.limits, width, height, 0);
    if (most < 1 || most > kMostOfWord) Refuse("the header of the pixmap is damaged");
    most_ = static_cast<unsigned>(most);
    info_.width = info_.full_width = static_cast<int>(width);
    info_.height = info_.full_height = static_cast<int>(height);
    info_.layout = file[1] == '5' ? PixelLayout::kGray : PixelLayout::kRgb;
    samples_ = static_cast<std::size_t>(width) * static_cast<std::size_t>(ChannelsOf(info_.layout));
    stride_ = samples_ * (most_ > kMostOfByte ? 2 : 1);
    const std::size_t start = header.PixelsStart();
    if (file.size() - start < stride_ * static_cast<std::size_t>(height)) {
      Refuse("the pixmap is cut off");
    }
    next_ = file.data() + start;
    if (most_ != kMostOfByte) row_.resize(samples_);
  }

  [[nodiscard]] const ImageInfo& info() const override { return info_; }

  [[nodiscard]] const std::uint8_t* NextRow() override {
    const std::uint8_t* row = next_;
    next_ += stride_;
    if (most_ == kMostOfByte) return row;
    if (most_ < kMostOfByte) {
      for (std::size_t i = 0; i < samples_; ++i)
        row_[i] = Scaled(row[i]);
    } else {
      for (std::size_t i = 0; i < samples_; ++i)
        row_[i] = Scaled(BigEndian16(row + 2 * i));
    }
    return row_.data();
  }

 private:
  // Samples above the maximum that the header announces are clamped to it.
  [[nodiscard]] std::uint8_t Scaled(unsigned sample) const {
    return static_cast<std::uint8_t>((std::min(sample, most_) * kMostOfByte + most_ / 2) / most_);
  }

  ImageInfo info_;
  unsigned most_ = kMostOfByte;
  std::size_t samples_ = 0;  // of a row
  std::size_t stride_ = 0;   // bytes of a row in the file
  const std::uint8_t* next_ = nullptr;
  std::vector<std::uint8_t> row_;
};

}  // namespace

std::unique_ptr<ImageReader> OpenPnm(Bytes file, const ReadOptions& options) {
  return std::make_unique<PnmReader>(file, options);
}

}  // namespace keldo::convert
