// A profile file for some of the kinds only.
#pragma once

#include <optional>
#include <string>

#include "thumbs/thumb_kinds.h"
#include "util/handles.h"

namespace keldo::ctl {

/// A copy of a profile file with only the sections for the kinds of a mask. All are in phase 0, so
/// that one run makes them from the photo itself. It exists only in memory, so nothing is left
/// behind however this process ends. Our children can read it by its path while this object lives.
class KindProfile {
 public:
  /// Nothing when `profile_path` has none of these kinds, or when memory runs out; `problem` then
  /// says why.
  [[nodiscard]] static std::optional<KindProfile> Make(const std::string& profile_path,
                                                       ThumbSizeMask kinds, std::string& problem);

  /// "/proc/4711/fd/5".
  [[nodiscard]] std::string path() const;

 private:
  explicit KindProfile(UniqueFd fd);

  UniqueFd fd_;
};

}  // namespace keldo::ctl
