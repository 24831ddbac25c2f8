// The number formats of the pixel work.
#pragma once

#include <cstdint>

namespace keldo::convert {

/// Between two stages a sample is a 16-bit number with this many bits below the 8-bit value. It
/// leaves room for the overshoot of filters with negative weights.
inline constexpr int kFractionBits = 6;
inline constexpr std::int16_t kLargestSample = 255 << kFractionBits;

/// A filter weight is a 16-bit number; this would be 1, and is what the weights of a pixel add up
/// to. A single weight goes up to one less, which changes no 8-bit value.
inline constexpr int kWeightOne = 1 << 15;

}  // namespace keldo::convert
