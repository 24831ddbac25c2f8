// Headers simple enough to be read without a library: portable pixmaps, GIF and Windows bitmaps.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace keldo::media {

/// Width and height as a header gives them, not checked for sense.
struct ImageSize {
  std::int64_t width = 0;
  std::int64_t height = 0;
};

/// The size of a portable bitmap, graymap or pixmap, plain or raw (P1 to P6), whose first bytes are
/// `start`: "P6\n# made by dcraw\n4000 3000\n255\n". Nothing when it is none, or its header is
/// longer than `start`.
[[nodiscard]] std::optional<ImageSize> PixmapSize(std::string_view start);

/// The size of a Windows or OS/2 bitmap whose first bytes are `start`. The height of one that is
/// stored from the top, which is given as negative, comes as positive.
[[nodiscard]] std::optional<ImageSize> BitmapSize(std::string_view start);

/// The size of the canvas of a GIF whose first bytes are `start`.
[[nodiscard]] std::optional<ImageSize> GifSize(std::string_view start);

}  // namespace keldo::media
