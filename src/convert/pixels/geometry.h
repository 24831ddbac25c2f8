// Sizes of thumbnails.
#pragma once

#include "convert/pixels/plan.h"

namespace keldo::convert {

struct Size {
  int width = 0;   ///< pixels
  int height = 0;  ///< pixels
  friend bool operator==(const Size&, const Size&) = default;
};

/// The size of the thumbnail of an image: scaled to fit into the box, or to cover it where the box
/// says fill, sides rounded and at least 1, each never larger than the image's.
[[nodiscard]] Size ThumbnailSize(const Size& image, const Box& box);

}  // namespace keldo::convert
