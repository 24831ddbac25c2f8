#include "convert/pixels/geometry.h"

#include <algorithm>
#include <cmath>

namespace keldo::convert {
namespace {

int ScaledSide(int side, double scale) {
  const double scaled = std::floor(scale * side + 0.5);
  return std::clamp(static_cast<int>(std::min<double>(scaled, side)), 1, side);
}

}  // namespace

Size ThumbnailSize(const Size& image, const Box& box) {
  const double horizontal = static_cast<double>(box.width) / image.width;
  const double vertical = static_cast<double>(box.height) / image.height;
  const double scale = box.fill ? std::max(horizontal, vertical) : std::min(horizontal, vertical);
  return {ScaledSide(image.width, scale), ScaledSide(image.height, scale)};
}

}  // namespace keldo::convert
