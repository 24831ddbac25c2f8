// Measures how alike two images are.
#pragma once

#include "support/images.h"

namespace keldo::testing {

/// Peak signal-to-noise ratio over all channels in decibels: 48 if every sample differs by one,
/// infinite for equal images. Throws std::invalid_argument for images of different sizes.
[[nodiscard]] double Psnr(const Image& a, const Image& b);

/// Structural similarity of the brightness; 1 for equal images. This is the mean over windows of 8
/// x 8 pixels at every fourth pixel (smaller windows for smaller images). Throws
/// std::invalid_argument for images of different sizes or without pixels.
[[nodiscard]] double Ssim(const Image& a, const Image& b);

}  // namespace keldo::testing
