// The lock that lets one process at a time work on a directory's thumbnails.
#pragma once

#include <sys/file.h>

#include <string>

#include "util/handles.h"

namespace keldo {

/// Holds the exclusive lock of a metadata directory, which is its own lock file.
class DirectoryLock {
 public:
  /// Tries to lock `metadata_dir` without waiting. A failure is logged and leaves `held` false.
  explicit DirectoryLock(const std::string& metadata_dir);
  /// Unlocks and closes.
  ~DirectoryLock();
  DirectoryLock(const DirectoryLock&) = delete;
  DirectoryLock& operator=(const DirectoryLock&) = delete;

  [[nodiscard]] bool held() const { return held_; }

 private:
  UniqueFd directory_;
  bool held_ = false;
};

}  // namespace keldo
