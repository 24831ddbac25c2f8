// Laying transparent pixels over a background.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace keldo::convert {

/// Red, green and blue; all alike for gray pixels.
using Background = std::array<std::uint8_t, 3>;

inline constexpr Background kWhite{0xFF, 0xFF, 0xFF};

/// Lays `pixels` pixels of gray and alpha over the first value of a background. `to` may be `from`.
void FlattenGray(const std::uint8_t* from, std::size_t pixels, const Background& background,
                 std::uint8_t* to);

/// Lays `pixels` pixels of RGBA over a background. `to` may be `from`.
void FlattenRgb(const std::uint8_t* from, std::size_t pixels, const Background& background,
                std::uint8_t* to);

}  // namespace keldo::convert
