// Where rows of 8-bit pixels go.
#pragma once

#include <cstdint>

namespace keldo::convert {

/// Takes an image of known size, row by row from the top.
class RowSink {
 public:
  RowSink() = default;
  RowSink(const RowSink&) = delete;
  RowSink& operator=(const RowSink&) = delete;
  virtual ~RowSink() = default;

  /// The next row; it is not kept. Throws ImageError.
  virtual void Take(const std::uint8_t* row) = 0;
  /// After the last row. Throws ImageError.
  virtual void Finish() = 0;
};

}  // namespace keldo::convert
