// Camera RAW files for tests: valid DNG files of a Bayer sensor, not compressed.
#pragma once

#include <string>

#include "support/images.h"

namespace keldo::testing {

struct DngOptions {
  int orientation = 1;    ///< TIFF orientation tag of the whole file.
  std::string preview{};  ///< A JPEG file to embed as the camera's preview; none when empty.
  int preview_width = 0;
  int preview_height = 0;
};

/// A DNG file whose sensor saw `picture`, pixel for pixel, through a red-green-green-blue mosaic.
/// Width and height are even.
[[nodiscard]] std::string EncodeDng(const Picture& picture, const DngOptions& options = {});

}  // namespace keldo::testing
