// Pictures that look enough like photos for comparing image converters.
#pragma once

#include <cstdint>

#include "support/images.h"

namespace keldo::testing {

/// Soft light, cloudy texture of several sizes, sharp edges of bars and discs, and a little grain;
/// the same pixels for the same size and seed everywhere. Like a photo, it is scaled with its
/// size: small pictures show the same things smaller.
[[nodiscard]] Picture NaturalPicture(int width, int height, std::uint32_t seed = 1);

}  // namespace keldo::testing
