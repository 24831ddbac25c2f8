// Rotating and mirroring an image.
#pragma once

#include <memory>

#include "convert/pixels/image.h"

namespace keldo::convert {

/// A rotation by quarters of a circle, mirrored or not. Pixel (x, y) of the result is pixel (x, y)
/// of the source, or (y, x) with swapped axes, where a mirrored source coordinate counts from the
/// other end.
struct Rotation {
  bool swap_axes = false;
  bool mirror_x = false;  ///< of the source
  bool mirror_y = false;  ///< of the source

  /// What brings an image of this EXIF orientation (1 to 8) upright.
  [[nodiscard]] static Rotation FromOrientation(int orientation);
  /// This, followed by a rotation; `degrees` is a multiple of 90, clockwise.
  [[nodiscard]] Rotation Rotated(int degrees) const;
  /// This, followed by a left-right mirror.
  [[nodiscard]] Rotation Flopped() const;

  [[nodiscard]] bool IsIdentity() const { return !swap_axes && !mirror_x && !mirror_y; }
  /// The size of the result of an image of size `source`.
  [[nodiscard]] Size SizeOf(const Size& source) const;
  friend bool operator==(const Rotation&, const Rotation&) = default;
};

/// Holds an image of `size` and passes it on, rotated, when it is complete.
[[nodiscard]] std::unique_ptr<RowSink> MakeRotator(const Rotation& rotation, const Size& size,
                                                   int channels, std::unique_ptr<RowSink> next);

}  // namespace keldo::convert
