// The work queue's two files: text files of one path a line, which several programs read and write.
#pragma once

#include <sys/stat.h>

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "util/handles.h"

namespace keldo::ctl {

/// The lines of a text, empty ones left out. The last one needs no newline.
[[nodiscard]] std::vector<std::string> LinesOf(std::string_view text);

/// The lines of a queue file. A missing file is an empty queue. Nothing with errno set when it
/// cannot be read.
[[nodiscard]] std::optional<std::vector<std::string>> ReadQueue(const std::string& queue_path);

/// A queue file while nobody else writes to it.
///
/// Writers lock the file itself, and look after that whether it still stands at its path. So a
/// locked file can be replaced as a whole: who waited for the old one turns to the new one.
class LockedQueue {
 public:
  /// Locks the file, waiting up to ten seconds for others. A missing file is left missing, unless
  /// `make_missing`; there is then nothing to lock, and nothing in it.
  explicit LockedQueue(const std::string& queue_path, bool make_missing = false);

  /// True when it is locked and read; else errno, as it was at the end of the constructor, told
  /// why.
  [[nodiscard]] bool held() const { return held_; }
  [[nodiscard]] const std::string& content() const { return content_; }

  /// Makes `content` the file's content, whole or not at all; mode and owner stay, as far as that
  /// is ours to say. The lock ends with it, since it is on the old file. False with errno set.
  [[nodiscard]] bool Replace(const std::string& content);

  /// Removes the file; that it is missing is no failure. The lock ends with it.
  [[nodiscard]] bool Remove();

 private:
  std::string path_;
  UniqueFd fd_;
  std::string content_;
  std::optional<struct stat> status_;  ///< Of the file when it was locked.
  bool held_ = false;
};

/// Takes the lines that `is_done` holds for out of the queue file, under its lock: nobody can add a
/// line while they are judged. Other lines are kept as they are and in order. False with errno set
/// when the file cannot be read or written. Missing file: nothing to do, true.
[[nodiscard]] bool RemoveFromQueueIf(const std::string& queue_path,
                                     const std::function<bool(const std::string& line)>& is_done);

/// Takes `paths` out of the queue file, under its lock, other lines kept as they are and in order;
/// returns false when it cannot be written. Missing file: nothing to do, true.
[[nodiscard]] bool RemoveFromQueue(const std::string& queue_path,
                                   const std::set<std::string>& paths);

}  // namespace keldo::ctl
