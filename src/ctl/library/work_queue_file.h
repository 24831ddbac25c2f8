// The work queue's files: text files of one entry a line, which several programs read and write.
#pragma once

#include <sys/stat.h>

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "thumbs/paths.h"
#include "util/handles.h"

namespace keldo::ctl {

/// The lines of a text without empty ones. The last one needs no newline.
[[nodiscard]] std::vector<std::string> LinesOf(std::string_view text);

/// The lines of a queue file; none if it does not exist. Nothing, with errno set, if it cannot be
/// read.
[[nodiscard]] std::optional<std::vector<std::string>> ReadQueue(const std::string& queue_path);

/// A queue file, locked against other writers.
///
/// Writers lock the file itself, and then check that it is still the file at its path. So a locked
/// file can be replaced as a whole: writers that waited for the old file go on to the new one.
class LockedQueue {
 public:
  /// Locks the file; waits up to ten seconds for others. A missing file is an empty queue, which
  /// needs no lock, unless `make_missing` is set.
  explicit LockedQueue(const std::string& queue_path, bool make_missing = false);

  /// True when the file is locked and read; else errno after the constructor said why.
  [[nodiscard]] bool held() const { return held_; }
  [[nodiscard]] const std::string& content() const { return content_; }

  /// Replaces the content, completely or not at all; keeps mode and owner as far as permitted.
  /// Releases the lock, which is on the old file. False, with errno set, on failure.
  [[nodiscard]] bool Replace(const std::string& content);

  /// Removes the file, if it exists, and releases the lock.
  [[nodiscard]] bool Remove();

 private:
  std::string path_;
  UniqueFd fd_;
  std::string content_;
  std::optional<struct stat> status_;  ///< When the file was locked.
  bool held_ = false;
};

/// Removes the lines for which `is_done` holds from the queue file, under its lock, so that nobody
/// can add a line meanwhile. Keeps the other lines and their order. True if the file does not
/// exist; false, with errno set, if it cannot be read or written.
[[nodiscard]] bool RemoveFromQueueIf(const std::string& queue_path,
                                     const std::function<bool(const std::string& line)>& is_done);

/// Likewise, removes the lines that are in `paths`.
[[nodiscard]] bool RemoveFromQueue(const std::string& queue_path,
                                   const std::set<std::string>& paths);

/// The files of a work queue.
struct QueuePaths {
  std::string waiting = paths::kThumbQueue;
  std::string in_work = paths::kThumbQueueInWork;
  /// Locked while a run processes the queue; empty, and never removed.
  std::string run_lock = std::string(paths::kThumbQueueInWork) + ".lock";
};

/// The entries that a run is working on. Only one run at a time has any.
///
/// Waiting entries move to the in-work file, leave it when they are done, and return to the queue
/// if they were not reached. An entry is always in one of the two files or in both: it is written
/// to the new place before it is removed from the old one. So the next run finds what a killed run
/// has left.
///
/// Operations return false on failure; problem() and problem_path() then say why.
class QueueClaim {
 public:
  explicit QueueClaim(QueuePaths paths) : paths_(std::move(paths)) {}

  /// Locks out other runs. False, with is_busy(), if there is another run.
  [[nodiscard]] bool Lock();
  [[nodiscard]] bool is_busy() const { return is_busy_; }

  /// Claims all entries: those that an earlier run left, then those waiting.
  [[nodiscard]] bool Claim();

  /// The claimed entries, oldest first.
  [[nodiscard]] const std::vector<std::string>& entries() const { return entries_; }

  /// Removes entries for good.
  [[nodiscard]] bool Finish(const std::set<std::string>& done);

  /// Returns all entries to the queue, ahead of those waiting, and removes the in-work file if it
  /// is empty.
  [[nodiscard]] bool Return();

  [[nodiscard]] const std::string& problem() const { return problem_; }
  [[nodiscard]] const std::string& problem_path() const { return problem_path_; }

 private:
  bool Fail(const std::string& path);
  [[nodiscard]] bool RemoveEmptyFile();

  QueuePaths paths_;
  UniqueFd lock_;
  bool is_busy_ = false;
  std::vector<std::string> entries_;
  std::string problem_;
  std::string problem_path_;
};

}  // namespace keldo::ctl
