#include "convert/pixels/rotation.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace keldo::convert {
namespace {

// Rows made at a time, so that each source row read serves all of them.
constexpr int kRowsAtOnce = 16;

class Rotator : public RowSink {
 public:
  Rotator(const Rotation& rotation, const Size& size, int channels, std::unique_ptr<RowSink> next)
      : rotation_(rotation),
        source_(size),
        result_(rotation.SizeOf(size)),
        channels_(static_cast<std::size_t>(channels)),
        next_(std::move(next)),
        pixels_(static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height) *
                channels_) {}

  void AddRow(const std::uint8_t* row) override {
    const std::size_t bytes = static_cast<std::size_t>(source_.width) * channels_;
    std::copy(row, row + bytes, pixels_.data() + rows_taken_++ * bytes);
  }

  void Finish() override {
    std::vector<std::uint8_t> rows(static_cast<std::size_t>(kRowsAtOnce) * Stride());
    for (int first = 0; first < result_.height; first += kRowsAtOnce) {
      const int end = std::min(first + kRowsAtOnce, result_.height);
      for (int x = 0; x < result_.width; ++x) {
        for (int y = first; y < end; ++y)
          CopyPixel(x, y, rows.data() + static_cast<std::size_t>(y - first) * Stride());
      }
      for (int y = first; y < end; ++y)
        next_->AddRow(rows.data() + static_cast<std::size_t>(y - first) * Stride());
    }
    next_->Finish();
  }

 private:
  [[nodiscard]] std::size_t Stride() const {
    return static_cast<std::size_t>(result_.width) * channels_;
  }

  void CopyPixel(int x, int y, std::uint8_t* row) const {
    int from_x = rotation_.swap_axes ? y : x;
    int from_y = rotation_.swap_axes ? x : y;
    if (rotation_.mirror_x) from_x = source_.width - 1 - from_x;
    if (rotation_.mirror_y) from_y = source_.height - 1 - from_y;
    const std::uint8_t* from = pixels_.data() + (static_cast<std::size_t>(from_y) *
                                                     static_cast<std::size_t>(source_.width) +
                                                 static_cast<std::size_t>(from_x)) *
                                                    channels_;
    std::uint8_t* to = row + static_cast<std::size_t>(x) * channels_;
    for (std::size_t c = 0; c < channels_; ++c)
      to[c] = from[c];
  }

  Rotation rotation_;
  Size source_;
  Size result_;
  std::size_t channels_;
  std::unique_ptr<RowSink> next_;
  std::vector<std::uint8_t> pixels_;
  std::size_t rows_taken_ = 0;
};

}  // namespace

Rotation Rotation::FromOrientation(int orientation) {
  switch (orientation) {
    case 2:
      return Rotation{}.Flopped();
    case 3:
      return Rotation{}.Rotated(180);
    case 4:
      return Rotation{}.Rotated(180).Flopped();
    case 5:
      return Rotation{}.Rotated(90).Flopped();
    case 6:
      return Rotation{}.Rotated(90);
    case 7:
      return Rotation{}.Rotated(270).Flopped();
    case 8:
      return Rotation{}.Rotated(270);
    default:
      return {};
  }
}

// A rotation by 90 degrees puts row H-1-x, column y at (x, y).
Rotation Rotation::Rotated(int degrees) const {
  constexpr int kQuarter = 90;
  constexpr int kQuarters = 4;
  Rotation rotation = *this;
  for (int i = 0; i < (degrees / kQuarter % kQuarters + kQuarters) % kQuarters; ++i) {
    if (rotation.swap_axes) {
      rotation.mirror_x = !rotation.mirror_x;
    } else {
      rotation.mirror_y = !rotation.mirror_y;
    }
    rotation.swap_axes = !rotation.swap_axes;
  }
  return rotation;
}

Rotation Rotation::Flopped() const {
  Rotation rotation = *this;
  if (rotation.swap_axes) {
    rotation.mirror_y = !rotation.mirror_y;
  } else {
    rotation.mirror_x = !rotation.mirror_x;
  }
  return rotation;
}

Size Rotation::SizeOf(const Size& source) const {
  return swap_axes ? Size{source.height, source.width} : source;
}

std::unique_ptr<RowSink> MakeRotator(const Rotation& rotation, const Size& size, int channels,
                                     std::unique_ptr<RowSink> next) {
  return std::make_unique<Rotator>(rotation, size, channels, std::move(next));
}

}  // namespace keldo::convert
