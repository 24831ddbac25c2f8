// Camera RAW files for tests: valid, uncompressed DNG files of a Bayer sensor.
#pragma once

#include <string>

#include "support/images.h"

namespace keldo::testing {

struct DngOptions {
  int orientation = 1;    ///< TIFF orientation tag of the whole file.
  std::string preview{};  ///< A JPEG file to embed as the camera's preview; empty for none.
  int preview_width = 0;
  int preview_height = 0;
};

/// A DNG file whose sensor recorded the pixels of `image` through a red-green-green-blue mosaic.
/// Width and height must be even.
[[nodiscard]] std::string EncodeDng(const Image& image, const DngOptions& options = {});

}  // namespace keldo::testing
