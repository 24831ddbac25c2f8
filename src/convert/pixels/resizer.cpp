#include "convert/pixels/resizer.h"

#include <algorithm>
#include <array>
#include <utility>

namespace keldo::convert {
namespace {

// Pixels of the result made at a time from a block of rows, so that their sources stay in the
// first-level cache.
constexpr int kStrip = 64;
// Rows are transposed in tiles of this many samples.
constexpr std::size_t kTile = 8;

std::size_t Samples(int pixels, int channels) {
  return static_cast<std::size_t>(pixels) * static_cast<std::size_t>(channels);
}

// Gives each source row that a result needs a slot in a ring, and returns the ring's size.
int AssignSlots(const FilterWeights& down, std::vector<int>& slots) {
  slots.assign(static_cast<std::size_t>(down.source()), -1);
  for (int y = 0; y < down.target(); ++y) {
    for (const int source : down.taps(y).sources)
      slots[static_cast<std::size_t>(source)] = 0;
  }
  int used = 0;
  for (int& slot : slots) {
    if (slot == 0) slot = used++;
  }
  int most = 1;
  for (int y = 0; y < down.target(); ++y) {
    const auto sources = down.taps(y).sources;
    const int first = slots[static_cast<std::size_t>(sources.front())];
    const int last = slots[static_cast<std::size_t>(sources.back())];
    most = std::max(most, last - first + 1);
  }
  for (int& slot : slots) {
    if (slot >= 0) slot %= most;
  }
  return most;
}

}  // namespace

Resizer::Resizer(const Reduction& reduction, const RowKernels& kernels, Emit emit)
    : Resizer(reduction, kernels, std::move(emit), nullptr) {}

Resizer::Resizer(const Reduction& reduction, const RowKernels& kernels, EmitBytes emit)
    : Resizer(reduction, kernels, nullptr, std::move(emit)) {}

Resizer::Resizer(const Reduction& reduction, const RowKernels& kernels, Emit emit,
                 EmitBytes emit_bytes)
    : kernels_(kernels),
      emit_(std::move(emit)),
      emit_bytes_(std::move(emit_bytes)),
      channels_(reduction.channels),
      across_(reduction.source.width, reduction.target.width, reduction.filter,
              reduction.presampled),
      down_(reduction.source.height, reduction.target.height, reduction.filter,
            reduction.presampled),
      source_samples_(Samples(reduction.source.width, channels_)),
      source_stride_(SampleBuffer::Stride(source_samples_)),
      target_stride_(SampleBuffer::Stride(Samples(reduction.target.width, channels_))),
      kept_(static_cast<std::size_t>(AssignSlots(down_, slot_of_row_)) * source_stride_),
      rows_(kernels.lanes * source_stride_),
      transposed_(kernels.lanes * TransposedSamples()),
      reduced_(kernels.lanes * Samples(kStrip, channels_)),
      results_(emit_ ? kernels.lanes * target_stride_ : 0),
      byte_results_(emit_bytes_ ? kernels.lanes * target_stride_ : 0) {}

void Resizer::AddRow(const std::uint8_t* row) {
  const int slot = slot_of_row_[static_cast<std::size_t>(next_source_++)];
  if (slot < 0) return;
  Keep(row, slot);
  while (next_target_ < down_.target()) {
    const FilterWeights::Taps taps = down_.taps(next_target_);
    if (taps.sources.back() >= next_source_) return;
    MakeRow(taps);
    ++next_target_;
    if (rows_in_block_ == kernels_.lanes || next_target_ == down_.target()) FinishBlock();
  }
}

// The last vector of a row may reach beyond its end, where the caller's memory ends.
void Resizer::Keep(const std::uint8_t* row, int slot) {
  std::int16_t* to = kept_.data() + static_cast<std::size_t>(slot) * source_stride_;
  const std::size_t whole = source_samples_ / kernels_.lanes * kernels_.lanes;
  kernels_.widen(row, to, whole);
  constexpr std::size_t kMostLanes = 16;
  std::array<std::uint8_t, kMostLanes> rest{};
  std::copy(row + whole, row + source_samples_, rest.begin());
  if (whole < source_samples_) kernels_.widen(rest.data(), to + whole, kernels_.lanes);
}

void Resizer::MakeRow(const FilterWeights::Taps& taps) {
  row_pointers_.clear();
  for (const int source : taps.sources) {
    const auto slot = static_cast<std::size_t>(slot_of_row_[static_cast<std::size_t>(source)]);
    row_pointers_.push_back(kept_.data() + slot * source_stride_);
  }
  kernels_.add_rows(row_pointers_, taps.weights, rows_.data() + rows_in_block_ * source_stride_,
                    source_stride_);
  ++rows_in_block_;
}

// The last block may lack rows. They hold garbage, and their results are never used.
void Resizer::FinishBlock() {
  for (int first = 0; first < across_.target(); first += kStrip)
    ReduceStrip(first, std::min(first + kStrip, across_.target()));
  const std::size_t rows = std::exchange(rows_in_block_, 0);
  for (std::size_t i = 0; i < rows; ++i) {
    if (emit_) {
      emit_(results_.data() + i * target_stride_);
    } else {
      emit_bytes_(byte_results_.data() + i * target_stride_);
    }
  }
}

void Resizer::ReduceStrip(int first, int end) {
  const std::size_t start = Samples(across_.taps(first).sources.front(), channels_) / kTile * kTile;
  const std::size_t stop = Samples(across_.taps(end - 1).sources.back() + 1, channels_);
  kernels_.transpose(rows_.data() + start, source_stride_, transposed_.data(), stop - start);
  kernels_.filter_transposed({transposed_.data(), start}, reduced_.data(), across_,
                             {first, end, channels_});
  const std::size_t at = Samples(first, channels_);
  const std::size_t count = Samples(end - first, channels_);
  if (emit_) {
    kernels_.transpose_back(reduced_.data(), results_.data() + at, target_stride_, count);
  } else {
    kernels_.transpose_back_narrow(reduced_.data(), byte_results_.data() + at, target_stride_,
                                   count);
  }
}

// What the widest strip needs.
std::size_t Resizer::TransposedSamples() const {
  int most = 0;
  for (int first = 0; first < across_.target(); first += kStrip) {
    const int end = std::min(first + kStrip, across_.target());
    most = std::max(most,
                    across_.taps(end - 1).sources.back() + 1 - across_.taps(first).sources.front());
  }
  return Samples(most, channels_) + 2 * kTile;
}

}  // namespace keldo::convert
