// The size and orientation of an image file, from its header.
#pragma once

#include <optional>
#include <string>

namespace keldo::media {

struct ImageHeader {
  int width = 0;        ///< In pixels; 1 to kMaxSide.
  int height = 0;       ///< In pixels; 1 to kMaxSide.
  int orientation = 0;  ///< EXIF numbering 1 to 8; 0 when unknown.
};

/// No camera or scanner makes images with longer sides; a header that claims one is damaged.
inline constexpr int kMaxSide = 10'000'000;

/// Reads the header of an image of any format that we can measure, detected by content, never by
/// name. Gives the stored size and the EXIF orientation; for HEIC and AVIF the displayed size with
/// orientation 1, since their decoders rotate the pixels themselves.
///
/// Nothing when the file cannot be read or is not such an image. Opens regular files only, decodes
/// no pixels, does not throw. Silent.
[[nodiscard]] std::optional<ImageHeader> ReadImageHeader(const std::string& path);

}  // namespace keldo::media
