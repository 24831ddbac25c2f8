#include "convert/pixels/turn.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <utility>

namespace keldo::convert {
namespace {

// Rows that are made together, so that each source row that is met serves them all.
constexpr int kRowsAtOnce = 16;

class Turner : public RowSink {
 public:
  Turner(const Turn& turn, const Size& size, int channels, std::unique_ptr<RowSink> next)
      : turn_(turn),
        source_(size),
        result_(turn.SizeOf(size)),
        channels_(static_cast<std::size_t>(channels)),
        next_(std::move(next)),
        pixels_(static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height) *
                channels_) {}

  void Take(const std::uint8_t* row) override {
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
        next_->Take(rows.data() + static_cast<std::size_t>(y - first) * Stride());
    }
    next_->Finish();
  }

 private:
  [[nodiscard]] std::size_t Stride() const {
    return static_cast<std::size_t>(result_.width) * channels_;
  }

  void CopyPixel(int x, int y, std::uint8_t* row) const {
    int from_x = turn_.swap_axes ? y : x;
    int from_y = turn_.swap_axes ? x : y;
    if (turn_.mirror_x) from_x = source_.width - 1 - from_x;
    if (turn_.mirror_y) from_y = source_.height - 1 - from_y;
    const std::uint8_t* from = pixels_.data() + (static_cast<std::size_t>(from_y) *
                                                     static_cast<std::size_t>(source_.width) +
                                                 static_cast<std::size_t>(from_x)) *
                                                    channels_;
    std::uint8_t* to = row + static_cast<std::size_t>(x) * channels_;
    for (std::size_t c = 0; c < channels_; ++c)
      to[c] = from[c];
  }

  Turn turn_;
  Size source_;
  Size result_;
  std::size_t channels_;
  std::unique_ptr<RowSink> next_;
  std::vector<std::uint8_t> pixels_;
  std::size_t rows_taken_ = 0;
};

}  // namespace

Turn Turn::FromOrientation(int orientation) {
  switch (orientation) {
    case 2:
      return Turn{}.Flopped();
    case 3:
      return Turn{}.Rotated(180);
    case 4:
      return Turn{}.Rotated(180).Flopped();
    case 5:
      return Turn{}.Rotated(90).Flopped();
    case 6:
      return Turn{}.Rotated(90);
    case 7:
      return Turn{}.Rotated(270).Flopped();
    case 8:
      return Turn{}.Rotated(270);
    default:
      return {};
  }
}

// A quarter turn puts row H-1-x, column y at (x, y).
Turn Turn::Rotated(int degrees) const {
  constexpr int kQuarter = 90;
  constexpr int kQuarters = 4;
  Turn turn = *this;
  for (int i = 0; i < (degrees / kQuarter % kQuarters + kQuarters) % kQuarters; ++i) {
    if (turn.swap_axes) {
      turn.mirror_x = !turn.mirror_x;
    } else {
      turn.mirror_y = !turn.mirror_y;
    }
    turn.swap_axes = !turn.swap_axes;
  }
  return turn;
}

Turn Turn::Flopped() const {
  Turn turn = *this;
  if (turn.swap_axes) {
    turn.mirror_y = !turn.mirror_y;
  } else {
    turn.mirror_x = !turn.mirror_x;
  }
  return turn;
}

Size Turn::SizeOf(const Size& source) const {
  return swap_axes ? Size{source.height, source.width} : source;
}

std::unique_ptr<RowSink> MakeTurner(const Turn& turn, const Size& size, int channels,
                                    std::unique_ptr<RowSink> next) {
  return std::make_unique<Turner>(turn, size, channels, std::move(next));
}

}  // namespace keldo::convert
