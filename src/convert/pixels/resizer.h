// Reducing an image, row by row.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <new>
#include <vector>

#include "convert/pixels/filter_weights.h"
#include "convert/pixels/plan.h"
#include "convert/pixels/row_kernels.h"

namespace keldo::convert {

/// Uninitialised 16-bit samples, aligned to a cache line so that no vector lies across two.
class SampleBuffer {
 public:
  static constexpr std::size_t kAlignment = 64;
  /// Rows that are a multiple of this many samples apart are aligned too.
  static constexpr std::size_t kSamples = kAlignment / sizeof(std::int16_t);

  /// Throws std::bad_alloc.
  explicit SampleBuffer(std::size_t count)
      : samples_(static_cast<std::int16_t*>(
            ::operator new (count * sizeof(std::int16_t), std::align_val_t{kAlignment}))) {}

  [[nodiscard]] std::int16_t* data() { return samples_.get(); }
  [[nodiscard]] const std::int16_t* data() const { return samples_.get(); }

  /// `count` rounded up to whole cache lines.
  [[nodiscard]] static std::size_t Stride(std::size_t count) {
    return (count + kSamples - 1) / kSamples * kSamples;
  }

 private:
  struct Free {
    void operator()(std::int16_t* samples) const {
      ::operator delete (samples, std::align_val_t{kAlignment});
    }
  };

  std::unique_ptr<std::int16_t, Free> samples_;
};

/// How an image is reduced.
struct Reduction {
  Size source;
  Size target;
  int channels = 3;  ///< 1 or 3
  Filter filter = Filter::kLanczos;
  bool presampled = false;  ///< see FilterWeights
};

/// Separable resizing. Holds only the rows that the next results need.
class Resizer {
 public:
  using Emit = std::function<void(const std::int16_t* row)>;
  using EmitBytes = std::function<void(const std::uint8_t* row)>;

  /// `emit` receives each row of the result: 16-bit samples (see kFractionBits), readable up to the
  /// next multiple of the kernels' lanes.
  Resizer(const Reduction& reduction, const RowKernels& kernels, Emit emit);
  /// The same, with 8-bit samples.
  Resizer(const Reduction& reduction, const RowKernels& kernels, EmitBytes emit);

  /// Adds the next row of the source, 8 bits per sample.
  void AddRow(const std::uint8_t* row);

 private:
  Resizer(const Reduction& reduction, const RowKernels& kernels, Emit emit, EmitBytes emit_bytes);
  void Keep(const std::uint8_t* row, int slot);
  void MakeRow(const FilterWeights::Taps& taps);
  void FinishBlock();
  void ReduceStrip(int first, int end);
  [[nodiscard]] std::size_t TransposedSamples() const;

  const RowKernels& kernels_;
  Emit emit_;  // one of the two
  EmitBytes emit_bytes_;
  int channels_;
  FilterWeights across_;
  FilterWeights down_;
  std::size_t source_samples_;  // of a row
  std::size_t source_stride_;   // of a row, whole cache lines
  std::size_t target_stride_;
  std::vector<int> slot_of_row_;  // where a source row is kept; -1 where no result needs it
  SampleBuffer kept_;
  SampleBuffer rows_;        // a block of rows of the source's width and the target's height
  SampleBuffer transposed_;  // a strip of it, transposed
  SampleBuffer reduced_;     // the strip's results, transposed
  SampleBuffer results_;     // what goes to emit_
  std::vector<std::uint8_t> byte_results_;  // what goes to emit_bytes_
  std::vector<const std::int16_t*> row_pointers_;
  std::size_t rows_in_block_ = 0;
  int next_source_ = 0;
  int next_target_ = 0;
};

}  // namespace keldo::convert
