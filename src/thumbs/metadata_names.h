// Every name in the metadata directories: "@eaDir" beside the photos holds a directory for each
// photo, and that one the files below. Only this header and the table of kinds name them.
#pragma once

#include <string>
#include <string_view>

#include "thumbs/thumb_kinds.h"

namespace keldo {

inline constexpr const char* kMetadataDirectory = "@eaDir";

/// A unique name for a file that is being made; the last six characters are random.
inline constexpr std::string_view kTemporaryTemplate = "KELDOPHOTO.tmp.XXXXXX";
/// The decoded image of a RAW photo, and the preview that the camera has put into it.
inline constexpr const char* kRawImageName = "KELDOPHOTO_RAW_TEMP.ppm";
inline constexpr const char* kRawPreviewName = "KELDOPHOTO_THUMB_RAW.jpg";
/// The colour profile of a JPEG photo that is decoded at reduced size.
inline constexpr const char* kIccProfileName = "KELDOPHOTO_PROFILE.icc";

/// "Temp_90.jpg": the rendering by which a rotation of 0, 90, 180 or 270 degrees is tried out.
[[nodiscard]] std::string RotationTrialName(int angle);
inline constexpr const char* kRotationTrialPattern = "Temp_*.jpg";

/// The failure marker of a thumbnail, by name or path: "KELDOPHOTO_THUMB_S.jpg" has
/// "KELDOPHOTO_THUMB_S.fail". Empty when there is no dot.
[[nodiscard]] std::string MarkerOf(std::string_view thumbnail);
inline constexpr const char* kMarkerPattern = "*.fail";
/// The same, but only markers of thumbnails, in either spelling.
inline constexpr const char* kThumbMarkerPattern = "KELDOPHOTO[_:]THUMB_*.fail";

/// What a file of a photo's metadata directory is, by its name.
enum class MetadataFile {
  kForeign,    ///< Not made by this system.
  kThumbnail,  ///< "KELDOPHOTO_THUMB_S.jpg" or "KELDOPHOTO:THUMB_S.jpg".
  kMarker,     ///< "KELDOPHOTO_THUMB_S.fail": this kind could not be made.
  kTemporary,  ///< Of use only while thumbnails are being made.
};

struct MetadataName {
  MetadataFile file = MetadataFile::kForeign;
  int kind = 0;  ///< The ThumbKind of a thumbnail or marker.
};

[[nodiscard]] MetadataName WhatIs(std::string_view name);

}  // namespace keldo
