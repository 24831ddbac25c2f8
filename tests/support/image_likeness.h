// How alike two pictures are.
#pragma once

#include "support/images.h"

namespace keldo::testing {

/// Peak signal-to-noise ratio over all channels, in decibels: 48 where every sample differs by one,
/// infinite for equal pictures. Throws std::invalid_argument for pictures of different sizes.
[[nodiscard]] double Psnr(const Picture& a, const Picture& b);

/// Structural similarity of the brightness, 1 for equal pictures: the mean over windows of 8 x 8
/// pixels at every fourth pixel (smaller at pictures that are smaller). Throws
/// std::invalid_argument for pictures of different sizes or without pixels.
[[nodiscard]] double Ssim(const Picture& a, const Picture& b);

}  // namespace keldo::testing
