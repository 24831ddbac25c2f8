#include "support/natural_image.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>

namespace keldo::testing {
namespace {

constexpr double kGrain = 2.5;

// A hash: neighbouring inputs give unrelated numbers.
std::uint32_t Scrambled(std::uint32_t value) {
  value = (value ^ (value >> 16)) * 0x7FEB352DU;
  value = (value ^ (value >> 15)) * 0x846CA68BU;
  return value ^ (value >> 16);
}

// A number from 0 to 1 for a point of the grid.
double Random(std::uint32_t seed, int x, int y) {
  const std::uint32_t place = static_cast<std::uint32_t>(x) * 0x9E3779B9U;
  const std::uint32_t mixed = Scrambled(Scrambled(seed + place) + static_cast<std::uint32_t>(y));
  return mixed / 4294967295.0;
}

double Mixed(double from, double to, double share) {
  return from + (to - from) * share;
}

// Random numbers on a grid with smooth interpolation in between.
double SmoothNoise(std::uint32_t seed, double x, double y) {
  const int left = static_cast<int>(std::floor(x));
  const int top = static_cast<int>(std::floor(y));
  const double across = x - left;
  const double down = y - top;
  const double share_x = across * across * (3 - 2 * across);
  const double share_y = down * down * (3 - 2 * down);
  return Mixed(Mixed(Random(seed, left, top), Random(seed, left + 1, top), share_x),
               Mixed(Random(seed, left, top + 1), Random(seed, left + 1, top + 1), share_x),
               share_y);
}

// Clouds: each layer is half as large and half as strong as the previous one.
double Texture(std::uint32_t seed, double x, double y) {
  double sum = 0;
  double strength = 0.5;
  for (std::uint32_t layer = 0; layer < 6; ++layer) {
    sum += strength * SmoothNoise(seed + layer * 101, x, y);
    x *= 2.1;
    y *= 2.1;
    strength /= 2;
  }
  return sum;
}

struct Shapes {
  bool disc = false;
  bool bar = false;
};

Shapes ShapesAt(double x, double y) {
  // A large disc with a ring of small ones, and slanted bars in the lower third.
  const double angle = std::atan2(y - 0.4, x - 0.55);
  const double radius = std::hypot(x - 0.55, y - 0.4);
  const bool large = radius < 0.15;
  const bool small = std::hypot(radius - 0.26, 0.26 * std::sin(angle * 6) / 6) < 0.03;
  const double along = x * 14 + y * 5;
  return {large || small, y > 0.66 && along - std::floor(along) < 0.35};
}

// x and y go from 0 to about 1.
std::array<double, 3> ColourAt(double x, double y, std::uint32_t seed) {
  const double cloud = Texture(seed, x * 5, y * 5);
  const double tint = Texture(seed + 7001, x * 3, y * 3);
  const double light = 60 + 110 * (1 - y) + 90 * (cloud - 0.5);
  std::array<double, 3> colour = {light * (0.75 + 0.5 * tint), light, light * (1.3 - 0.6 * tint)};
  const Shapes shapes = ShapesAt(x, y);
  if (shapes.disc) colour = {colour[0] * 0.4 + 120, colour[1] * 0.5 + 40, colour[2] * 0.3};
  if (shapes.bar) colour = {colour[0] * 0.35, colour[1] * 0.4 + 10, colour[2] * 0.5 + 25};
  return colour;
}

}  // namespace

Image NaturalImage(int width, int height, std::uint32_t seed) {
  Image image{width, height, {}};
  image.pixels.reserve(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
  const double side = std::max(width, height);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const std::array<double, 3> colour = ColourAt(x / side, y / side, seed);
      const double grain = (Random(seed + 9001, x, y) - 0.5) * 2 * kGrain;
      Rgb pixel{};
      for (std::size_t channel = 0; channel < 3; ++channel) {
        pixel[channel] = static_cast<std::uint8_t>(std::clamp(colour[channel] + grain, 0.0, 255.0));
      }
      image.pixels.push_back(pixel);
    }
  }
  return image;
}

}  // namespace keldo::testing
