// What an image may cost. Checked from the header, before memory is taken.
#pragma once

#include <cstdint>

namespace keldo::convert {

/// Larger than any camera's panorama, and small enough that a hostile header cannot exhaust a
/// machine.
struct Limits {
  int side = 65500;                                   ///< pixels; what a JPEG file can have
  std::int64_t pixels = std::int64_t{1} << 29;        ///< of the whole image
  std::int64_t memory_bytes = std::int64_t{1} << 30;  ///< held at one time for pixels
};

/// Checks an image of this size against the limits. `bytes_held` is the memory that reading it
/// takes at one time. Throws ImageError (kLimit) with the figure that is too large, or (kCorrupt)
/// for a side below 1.
void CheckLimits(const Limits& limits, std::int64_t width, std::int64_t height,
                 std::int64_t bytes_held);

}  // namespace keldo::convert
