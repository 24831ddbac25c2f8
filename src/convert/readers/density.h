// Densities as files give them, made fit for JFIF.
#pragma once

#include <cstdint>

namespace keldo::convert {

/// The whole part; JFIF has 16 bits for it. Dropped and not rounded, since 28.5 has always come out
/// as 28 in thumbnails.
[[nodiscard]] inline std::uint16_t DensityValue(double value) {
  constexpr double kMost = 65535;
  if (!(value > 0)) return 0;
  return static_cast<std::uint16_t>(value < kMost ? value : kMost);
}

}  // namespace keldo::convert
