// What an image file's header says about its pixels.
#pragma once

#include <optional>
#include <string>

namespace keldo::media {

struct ImageHeader {
  int width = 0;        ///< In pixels; 1 to kMaxSide.
  int height = 0;       ///< In pixels; 1 to kMaxSide.
  int orientation = 0;  ///< EXIF numbering 1 to 8; 0 when unknown.
};

/// No camera or scanner makes a longer side; a header that claims one is damaged.
inline constexpr int kMaxSide = 10'000'000;

/// Reads the header of an image of any kind that we can measure; the kind is told by the content,
/// never by the name. Stored size and the orientation that turns it upright; for HEIC and AVIF the
/// displayed size with orientation 1, since their decoders turn the pixels themselves.
///
/// Nothing when the file cannot be read or is no such image. Only regular files are opened, no
/// pixels are decoded, nothing is thrown, logged or printed.
[[nodiscard]] std::optional<ImageHeader> ReadImageHeader(const std::string& path);

}  // namespace keldo::media
