// Size masks as people write and read them.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "thumbs/thumb_kinds.h"

namespace keldo::ctl {

/// The names of the kinds in a mask, from the smallest to the largest: 35 gives S, SM, M.
[[nodiscard]] std::vector<std::string> KindNames(int mask);

/// The same in one line, "S, SM, M"; "no thumbnails" for 0.
[[nodiscard]] std::string KindsText(int mask);

/// Reads "35", "0x23" or "S,SM,M" (any case). Nothing when it is neither, or names a kind that does
/// not exist.
[[nodiscard]] std::optional<int> ParseMask(std::string_view text);

}  // namespace keldo::ctl
