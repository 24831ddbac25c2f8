#include "support/images.h"

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

namespace keldo::testing {
namespace {

// Builds an image from a function that gives the colour of each pixel.
template <typename Colour>
Image Painted(int width, int height, const Colour& colour) {
  Image image{width, height, {}};
  image.pixels.reserve(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x)
      image.pixels.push_back(colour(x, y));
  }
  return image;
}

}  // namespace

Image FourCorners(int width, int height, const CornerColours& colours) {
  return Painted(width, height, [&](int x, int y) {
    const std::size_t right = 2 * x >= width ? 1 : 0;
    const std::size_t bottom = 2 * y >= height ? 2 : 0;
    return colours[right + bottom];
  });
}

Image Plain(int width, int height, Rgb colour) {
  return Painted(width, height, [&](int, int) { return colour; });
}

CornerColours Corners(const Image& image) {
  const int left = image.width / 4;
  const int right = image.width - 1 - left;
  const int top = image.height / 4;
  const int bottom = image.height - 1 - top;
  return {image.At(left, top), image.At(right, top), image.At(left, bottom),
          image.At(right, bottom)};
}

int CornerDistance(const CornerColours& a, const CornerColours& b) {
  int distance = 0;
  for (std::size_t corner = 0; corner < a.size(); ++corner) {
    for (std::size_t channel = 0; channel < 3; ++channel) {
      distance = std::max(distance, std::abs(int{a[corner][channel]} - int{b[corner][channel]}));
    }
  }
  return distance;
}

Image StoredWith(int orientation, const Image& upright) {
  const int right = upright.width - 1;
  const int bottom = upright.height - 1;
  const bool mirrored_x =
      orientation == 2 || orientation == 3 || orientation == 6 || orientation == 7;
  const bool mirrored_y =
      orientation == 3 || orientation == 4 || orientation == 7 || orientation == 8;
  const bool swapped = orientation >= 5;
  return Painted(swapped ? upright.height : upright.width, swapped ? upright.width : upright.height,
                 [&](int column, int row) {
                   const int x = swapped ? row : column;
                   const int y = swapped ? column : row;
                   return upright.At(mirrored_x ? right - x : x, mirrored_y ? bottom - y : y);
                 });
}

Image Rotated(int degrees, const Image& image) {
  switch (degrees) {
    case 0:
      return image;
    case 90:
      return StoredWith(8, image);
    case 180:
      return StoredWith(3, image);
    case 270:
      return StoredWith(6, image);
    default:
      throw std::invalid_argument("not a multiple of 90 degrees");
  }
}

std::string EncodePpm(const Image& image) {
  std::string out =
      "P6\n" + std::to_string(image.width) + " " + std::to_string(image.height) + "\n255\n";
  for (const Rgb& pixel : image.pixels) {
    for (const std::uint8_t channel : pixel)
      out += static_cast<char>(channel);
  }
  return out;
}

}  // namespace keldo::testing
