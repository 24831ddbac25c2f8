// One thumbnail to render, and the list of one converter run.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace keldo {

/// One thumbnail to render.
struct ThumbRequest {
  std::string sourcePath;           ///< Photo to read.
  std::string destPath;             ///< Final thumbnail path.
  std::string tempDir;              ///< Converter's temporary directory; the list's first counts.
  std::string tempPath;             ///< Output name until the commit; set by AddThumbRequest.
  bool fill = false;                ///< The shorter side reaches the box, not the longer.
  std::int32_t width = 320;         ///< Box width in pixels.
  std::int32_t height = 320;        ///< Box height in pixels.
  std::int32_t quality = 90;        ///< JPEG quality.
  bool stripProfiles = true;        ///< Drop all profiles but ICC.
  bool flatten = true;              ///< Lay transparency over the background.
  bool autoOrient = false;          ///< Turn by the photo's own orientation tag.
  bool flop = false;                ///< Mirror left to right, after the rotation.
  std::int32_t rotate = -1;         ///< Degrees clockwise; 0 or less means none.
  std::string unsharp;              ///< Sharpening argument; empty for none.
  std::string colorspace = "sRGB";  ///< Colour space argument; empty for none.
};

/// The thumbnails of one converter run. All have the same source; once sorted, the first is the
/// largest, and the others are scaled from it.
using ThumbRequestList = std::vector<ThumbRequest>;

}  // namespace keldo
