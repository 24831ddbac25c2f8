#include "convert/readers/flatten.h"

namespace keldo::convert {
namespace {

// The weighted mean, rounded: exactly value for an alpha of 255 and background for 0.
std::uint8_t Mix(unsigned value, unsigned alpha, unsigned background) {
  constexpr unsigned kOpaque = 255;
  return static_cast<std::uint8_t>((value * alpha + background * (kOpaque - alpha) + kOpaque / 2) /
                                   kOpaque);
}

}  // namespace

void FlattenGray(const std::uint8_t* from, std::size_t pixels, const Background& background,
                 std::uint8_t* to) {
  for (std::size_t i = 0; i < pixels; ++i)
    to[i] = Mix(from[2 * i], from[2 * i + 1], background[0]);
}

void FlattenRgb(const std::uint8_t* from, std::size_t pixels, const Background& background,
                std::uint8_t* to) {
  for (std::size_t i = 0; i < pixels; ++i) {
    const unsigned alpha = from[4 * i + 3];
    to[3 * i] = Mix(from[4 * i], alpha, background[0]);
    to[3 * i + 1] = Mix(from[4 * i + 1], alpha, background[1]);
    to[3 * i + 2] = Mix(from[4 * i + 2], alpha, background[2]);
  }
}

}  // namespace keldo::convert
