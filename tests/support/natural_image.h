// Images that resemble photos closely enough to compare image converters.
#pragma once

#include <cstdint>

#include "support/images.h"

namespace keldo::testing {

/// An image with soft light, cloudy texture at several scales, sharp edges of bars and discs, and a
/// little grain. The same size and seed always give the same pixels. A smaller image shows the same
/// scene at a smaller scale, like a photo.
[[nodiscard]] Image NaturalImage(int width, int height, std::uint32_t seed = 1);

}  // namespace keldo::testing
