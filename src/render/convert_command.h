// The converter's command line: one run that decodes a photo once and writes a chain of thumbnails.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/index_ipc.h"
#include "platform/process.h"

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
  bool autoOrient = false;          ///< Rotate by the photo's own orientation tag.
  bool flop = false;                ///< Mirror left to right, after the rotation.
  std::int32_t rotate = -1;         ///< Degrees clockwise; 0 or less means none.
  std::string unsharp;              ///< Sharpening argument; empty for none.
  std::string colorspace = "sRGB";  ///< Colour space argument; empty for none.
};

/// The thumbnails of one converter run. All have the same source; once sorted, the first is the
/// largest, and the others are scaled from it.
using ThumbRequestList = std::vector<ThumbRequest>;

/// Runs the converter on `input_path` for all thumbnails of the list, which write to their
/// `tempPath`. `icc_path` names a file with the ICC profile to attach; empty, or a missing or empty
/// file, means none. True when the converter succeeded. Silent; removes nothing.
[[nodiscard]] bool RunConvert(const ThumbRequestList& list, const std::string& input_path,
                              const std::string& icc_path);

/// RunConvert without an ICC profile.
[[nodiscard]] bool RunConvertPlain(const ThumbRequestList& list, const std::string& input_path);

/// Adds the converter's temporary directory, taken from the first request; nothing when it has
/// none.
void AddTemporaryPathDefine(const ThumbRequestList& list, KELDOUtils::ProcessRunner& runner);

/// Adds the options of one thumbnail, in their fixed order.
void AddThumbnailOptions(KELDOUtils::ProcessRunner& runner, const ThumbRequest& request);

/// Adds the group that makes the largest thumbnail from the photo and drops the photo.
void AddFirstThumbnail(KELDOUtils::ProcessRunner& runner, const ThumbRequest& request);
/// Adds the group that makes a thumbnail from a clone of the largest one.
void AddMiddleThumbnail(KELDOUtils::ProcessRunner& runner, const ThumbRequest& request);
/// Adds the end of the command, which makes the last thumbnail from what is left.
void AddLastThumbnail(KELDOUtils::ProcessRunner& runner, const ThumbRequest& request);

/// Sets `flop` and `rotate` of the first request from the photo's EXIF orientation (2 to 8; any
/// other value changes nothing). The later thumbnails are made from the first and need nothing.
/// Throws std::out_of_range for an empty list.
void ApplyPhotoRotation(ThumbRequestList& list, const keldoindexutils::MediaInfo& media);

}  // namespace keldo
