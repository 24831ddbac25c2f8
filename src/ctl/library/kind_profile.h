// A profile file for some of the kinds only.
#pragma once

#include <optional>
#include <string>

#include "thumbs/thumb_kinds.h"
#include "util/handles.h"

namespace keldo::ctl {

/// A profile file with those sections of another one that make the kinds of a mask. All are in
/// phase 0, so that one run makes them from the photo itself. It is in memory, so that nothing is
/// left of it however this process ends; our children read it by its path for as long as this
/// object lives.
class KindProfile {
 public:
  /// Nothing when `profile_path` has none of these kinds, or when there is no memory; `problem`
  /// then says why.
  [[nodiscard]] static std::optional<KindProfile> Make(const std::string& profile_path,
                                                       ThumbSizeMask kinds, std::string& problem);

  /// "/proc/4711/fd/5".
  [[nodiscard]] std::string path() const;

 private:
  explicit KindProfile(UniqueFd fd);

  UniqueFd fd_;
};

}  // namespace keldo::ctl
