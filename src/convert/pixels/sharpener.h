// Unsharp masking, row by row.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "convert/pixels/plan.h"
#include "convert/pixels/row_kernels.h"

namespace keldo::convert {

/// Holds as many rows as the blur is high. Beyond its edges the image is continued by their pixels.
class Sharpener {
 public:
  using Emit = std::function<void(const std::int16_t* row)>;

  /// `emit` receives each row of the result, like Resizer's.
  Sharpener(const Sharpening& sharpening, const Size& size, int channels, const RowKernels& kernels,
            Emit emit);

  /// Adds the next row: 16-bit samples, readable up to the next multiple of the kernels' lanes.
  void AddRow(const std::int16_t* row);

 private:
  void MakeRow(int y);
  void RepeatEdges(std::int16_t* row) const;

  const RowKernels& kernels_;
  Emit emit_;
  Size size_;
  std::size_t channels_;
  std::size_t stride_;  // samples of a row, a whole number of vectors
  std::vector<std::int16_t> weights_;
  int aside_;  // pixels of the blur on either side
  float gain_;
  float threshold_;
  std::vector<std::int16_t> kept_;
  std::vector<std::int16_t> blurred_down_;  // with the edges repeated on both sides
  std::vector<std::int16_t> blurred_;
  std::vector<std::int16_t> result_;
  std::vector<const std::int16_t*> taps_;
  int rows_taken_ = 0;
  int next_ = 0;
};

}  // namespace keldo::convert
