// A profile file for some of the kinds only.
#pragma once

#include <memory>
#include <string>

#include "profile/keldomk_util.h"

namespace keldo::ctl {

/// A temporary profile file with those sections of another one that make the kinds of a mask. All
/// are in phase 0, so that one run makes them from the photo itself. Removed with this object.
class KindProfile {
 public:
  /// Nothing when `profile_path` has none of these kinds, or when the file cannot be written;
  /// `problem` then tells why.
  [[nodiscard]] static std::unique_ptr<KindProfile> Make(const std::string& profile_path,
                                                         ThumbSizeMask kinds, std::string& problem);
  /// Takes charge of an existing file.
  explicit KindProfile(std::string path);
  ~KindProfile();
  KindProfile(const KindProfile&) = delete;
  KindProfile& operator=(const KindProfile&) = delete;

  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace keldo::ctl
