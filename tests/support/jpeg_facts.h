// Reads the header of a JPEG file.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "support/images.h"

namespace keldo::testing {

struct SamplingFactors {
  int horizontal = 1;
  int vertical = 1;
  friend bool operator==(const SamplingFactors&, const SamplingFactors&) = default;
};

/// The header of a JPEG file.
struct JpegFacts {
  int width = 0;
  int height = 0;
  std::vector<SamplingFactors> components;
  bool jfif = false;
  int density_unit = 0;  ///< 0: aspect ratio, 1: dots per inch, 2: dots per centimetre.
  int density_x = 0;
  int density_y = 0;
  std::string icc;  ///< Colour profile; empty for none.
  bool exif = false;
  bool comment = false;
  bool progressive = false;
  friend bool operator==(const JpegFacts&, const JpegFacts&) = default;
};

/// Nothing if the content is not a JPEG file.
[[nodiscard]] std::optional<JpegFacts> ReadJpegFacts(const std::string& content);

/// The facts as text for messages, "640x480 2x2,1x1,1x1 density 1:72x72 icc 560 bytes exif".
[[nodiscard]] std::string Describe(const JpegFacts& facts);

}  // namespace keldo::testing
