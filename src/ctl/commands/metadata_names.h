// Which files of a photo's metadata directory this system makes.
#pragma once

#include <string_view>

namespace keldo::ctl {

/// What a file of a metadata directory is, by its name.
enum class MetadataFile {
  kForeign,    ///< Not of this system's making, or nothing that is known.
  kThumbnail,  ///< "KELDOPHOTO_THUMB_S.jpg" or "KELDOPHOTO:THUMB_S.jpg".
  kMarker,     ///< "KELDOPHOTO_THUMB_S.fail": this kind could not be made.
  kTemporary,  ///< Of use only while thumbnails are being made.
};

struct MetadataName {
  MetadataFile file = MetadataFile::kForeign;
  int kind = 0;  ///< The ThumbKind of a thumbnail or marker.
};

[[nodiscard]] MetadataName WhatIs(std::string_view name);

}  // namespace keldo::ctl
