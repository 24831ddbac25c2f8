#include "convert/pixels/image.h"

#include <algorithm>
#include <string>

namespace keldo::convert {

void CheckLimits(const Limits& limits, std::int64_t width, std::int64_t height,
                 std::int64_t bytes_held) {
  const std::string size = std::to_string(width) + "x" + std::to_string(height) + " pixels";
  if (width < 1 || height < 1) {
    throw ImageError(ImageError::Kind::kCorrupt, "the header says " + size);
  }
  const auto refuse = [&](const std::string& limit) {
    throw ImageError(ImageError::Kind::kLimit, size + " exceed the limit of " + limit);
  };
  if (std::max(width, height) > limits.side) {
    refuse(std::to_string(limits.side) + " pixels a side");
  }
  if (width * height > limits.pixels) refuse(std::to_string(limits.pixels) + " pixels");
  if (bytes_held > limits.memory_bytes) {
    refuse(std::to_string(limits.memory_bytes >> 20) + " MiB of memory");
  }
}

}  // namespace keldo::convert
