// The kinds of thumbnails, one row each. A thumbnail lies in the metadata directory of its source:
// those of "/v/a.jpg" are in "/v/@eaDir/a.jpg/".
#pragma once

#include <algorithm>
#include <array>
#include <string>
#include <string_view>

namespace keldo {

/// A thumbnail kind; the value is also the kind's bit in a ThumbSizeMask. The numbers are not in
/// the order of size: the index stores masks with them.
enum ThumbKind : int {
  THUMB_S = 0,
  THUMB_M = 1,
  THUMB_B = 2,
  THUMB_L = 3,
  THUMB_XL = 4,
  THUMB_SM = 5,
};

/// Bit k set: thumbnails of kind k are wanted.
using ThumbSizeMask = int;

/// One row of the kind table.
struct ThumbKindInfo {
  ThumbKind kind;
  const char* short_name;  ///< What people call it.
  const char* box;         ///< Largest width and height in pixels.
  bool fills_box;          ///< The shorter side reaches the box, not the longer.
  /// The file name has two spellings. The underscore form is written, either one counts as present.
  const char* underscore_name;
  const char* colon_name;
};

/// All kinds, in the order of their numbers.
inline constexpr auto kThumbKindTable = std::to_array<ThumbKindInfo>({
    {THUMB_S, "S", "120x120", false, "KELDOPHOTO_THUMB_S.jpg", "KELDOPHOTO:THUMB_S.jpg"},
    {THUMB_M, "M", "320x320", true, "KELDOPHOTO_THUMB_M.jpg", "KELDOPHOTO:THUMB_M.jpg"},
    {THUMB_B, "B", "640x640", false, "KELDOPHOTO_THUMB_B.jpg", "KELDOPHOTO:THUMB_B.jpg"},
    {THUMB_L, "L", "800x800", true, "KELDOPHOTO_THUMB_L.jpg", "KELDOPHOTO:THUMB_L.jpg"},
    {THUMB_XL, "XL", "1280x1280", true, "KELDOPHOTO_THUMB_XL.jpg", "KELDOPHOTO:THUMB_XL.jpg"},
    {THUMB_SM, "SM", "240x240", true, "KELDOPHOTO_THUMB_SM.jpg", "KELDOPHOTO:THUMB_SM.jpg"},
});

/// The mask that wants every kind.
inline constexpr ThumbSizeMask kAllKinds = (1 << kThumbKindTable.size()) - 1;

[[nodiscard]] constexpr const ThumbKindInfo& InfoOf(ThumbKind kind) {
  return kThumbKindTable.at(static_cast<std::size_t>(kind));
}

/// The side of a kind's box in pixels.
[[nodiscard]] constexpr int BoxSide(const ThumbKindInfo& kind) {
  int side = 0;
  for (const char c : std::string_view(kind.box)) {
    if (c == 'x') break;
    side = side * 10 + (c - '0');
  }
  return side;
}

/// All kinds, from the smallest to the largest.
inline constexpr auto kKindsBySize = [] {
  auto rows = kThumbKindTable;
  std::sort(rows.begin(), rows.end(),
            [](const ThumbKindInfo& a, const ThumbKindInfo& b) { return BoxSide(a) < BoxSide(b); });
  return rows;
}();

/// True when the mask wants this kind.
[[nodiscard]] constexpr bool Wants(ThumbSizeMask mask, ThumbKind kind) {
  return ((mask >> kind) & 1) != 0;
}

/// The kind that a file name in either spelling stands for; null for any other name.
[[nodiscard]] const ThumbKindInfo* FindKind(std::string_view file_name);

/// True when `file_name`, in either spelling, names a kind that the mask wants. An unknown name is
/// logged and not wanted.
[[nodiscard]] bool IsKindWanted(const std::string& file_name, ThumbSizeMask mask);

}  // namespace keldo
