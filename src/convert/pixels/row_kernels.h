// The inner loops of resizing and sharpening, for the processor at hand.
//
// Resizing goes through blocks of `lanes` rows. In a transposed block sample s of row r stands at
// s * lanes + r, so that one vector holds the same sample of all rows: filtering along the row is
// then a plain sum of vectors, whatever the positions of the taps.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "convert/pixels/filter_weights.h"

namespace keldo::convert {

/// Part of a transposed block.
struct TransposedBlock {
  const std::int16_t* samples;
  std::size_t start;  ///< which sample of the rows comes first
};

/// Pixels of a row.
struct PixelRange {
  int first;
  int end;       ///< one past the last
  int channels;  ///< samples of each: 1 or 3
};

struct RowKernels {
  const char* name;
  /// Rows of a block, and samples of a vector: 8 or 16. Sample counts are multiples of it
  /// unless stated otherwise.
  std::size_t lanes;

  /// 8-bit samples as 16-bit ones.
  void (*widen)(const std::uint8_t* from, std::int16_t* to, std::size_t count);
  /// 16-bit samples rounded to 8-bit ones, clamped.
  void (*narrow)(const std::int16_t* from, std::uint8_t* to, std::size_t count);
  /// Sum of weighted rows, clamped to 0..kLargestSample.
  void (*add_rows)(std::span<const std::int16_t* const> rows, std::span<const std::int16_t> weights,
                   std::int16_t* to, std::size_t count);
  /// Transposes `count` samples of `lanes` rows, `stride` samples apart, into a transposed block.
  /// Up to the next multiple of 8 is read and written.
  void (*transpose)(const std::int16_t* from, std::size_t stride, std::int16_t* to,
                    std::size_t count);
  /// The opposite, also in steps of 8.
  void (*transpose_back)(const std::int16_t* from, std::int16_t* to, std::size_t stride,
                         std::size_t count);
  /// The same with the samples narrowed.
  void (*transpose_back_narrow)(const std::int16_t* from, std::uint8_t* to, std::size_t stride,
                                std::size_t count);
  /// Filters all rows of a transposed block for some pixels of the result, clamped like add_rows.
  void (*filter_transposed)(const TransposedBlock& from, std::int16_t* to,
                            const FilterWeights& weights, const PixelRange& pixels);
  /// to = p + gain * (p - blurred) where twice the difference reaches `threshold` (in samples),
  /// else p; clamped.
  void (*sharpen)(const std::int16_t* p, const std::int16_t* blurred, float gain, float threshold,
                  std::int16_t* to, std::size_t count);
};

/// The fastest kernels that this processor can run.
[[nodiscard]] const RowKernels& BestKernels();

/// All kernels that this processor can run, the plainest first.
[[nodiscard]] std::span<const RowKernels* const> AllKernels();

}  // namespace keldo::convert
