#include "convert/pixels/sharpener.h"

#include <algorithm>
#include <utility>

#include "convert/pixels/filter_weights.h"

namespace keldo::convert {

Sharpener::Sharpener(const Sharpening& sharpening, const Size& size, int channels,
                     const RowKernels& kernels, Emit emit)
    : kernels_(kernels),
      emit_(std::move(emit)),
      size_(size),
      channels_(static_cast<std::size_t>(channels)),
      stride_((static_cast<std::size_t>(size.width) * channels_ + kernels.lanes - 1) /
              kernels.lanes * kernels.lanes),
      weights_(BlurKernel(sharpening.radius, sharpening.sigma)),
      aside_(static_cast<int>(weights_.size() / 2)),
      gain_(static_cast<float>(sharpening.gain)),
      threshold_(static_cast<float>(sharpening.threshold * kLargestSample)),
      kept_(weights_.size() * stride_),
      blurred_down_(stride_ + 2 * static_cast<std::size_t>(aside_) * channels_),
      blurred_(stride_),
      result_(stride_) {}

void Sharpener::AddRow(const std::int16_t* row) {
  const auto slot = static_cast<std::size_t>(rows_taken_) % weights_.size();
  std::copy(row, row + stride_, kept_.data() + slot * stride_);
  ++rows_taken_;
  const int last = rows_taken_ == size_.height ? size_.height : rows_taken_ - aside_;
  while (next_ < last)
    MakeRow(next_++);
}

void Sharpener::MakeRow(int y) {
  const auto kept_row = [&](int row) {
    const int inside = std::clamp(row, 0, size_.height - 1);
    return kept_.data() + static_cast<std::size_t>(inside) % weights_.size() * stride_;
  };
  taps_.clear();
  for (int row = y - aside_; row <= y + aside_; ++row)
    taps_.push_back(kept_row(row));
  const std::size_t edge = static_cast<std::size_t>(aside_) * channels_;
  kernels_.add_rows(taps_, weights_, blurred_down_.data() + edge, stride_);

  RepeatEdges(blurred_down_.data());
  for (std::size_t i = 0; i < weights_.size(); ++i)
    taps_[i] = blurred_down_.data() + i * channels_;
  kernels_.add_rows(taps_, weights_, blurred_.data(), stride_);

  kernels_.sharpen(kept_row(y), blurred_.data(), gain_, threshold_, result_.data(), stride_);
  emit_(result_.data());
}

void Sharpener::RepeatEdges(std::int16_t* row) const {
  const std::size_t edge = static_cast<std::size_t>(aside_) * channels_;
  const std::size_t end = edge + static_cast<std::size_t>(size_.width) * channels_;
  for (std::size_t i = edge; i-- > 0;)
    row[i] = row[i + channels_];
  for (std::size_t i = end; i < end + edge; ++i)
    row[i] = row[i - channels_];
}

}  // namespace keldo::convert
