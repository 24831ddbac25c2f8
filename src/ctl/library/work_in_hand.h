// Processing the queue so that no entry is lost, whenever the work ends.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "thumbs/paths.h"
#include "util/handles.h"

namespace keldo::ctl {

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
/// if they were not reached. An entry is always in one of the two files or in both: it is written to
/// the new place before it is removed from the old one. So the next run finds what a killed run has
/// left.
///
/// Operations return false on failure; problem() and problem_path() then say why.
class WorkInHand {
 public:
  explicit WorkInHand(QueuePaths paths) : paths_(std::move(paths)) {}

  /// Locks out other runs. False, with is_busy(), if there is one.
  [[nodiscard]] bool KeepOthersOut();
  [[nodiscard]] bool is_busy() const { return is_busy_; }

  /// Takes all entries: those that an earlier run left, then those waiting.
  [[nodiscard]] bool Take();

  /// The entries taken, oldest first.
  [[nodiscard]] const std::vector<std::string>& entries() const { return entries_; }

  /// Removes entries for good.
  [[nodiscard]] bool Finish(const std::set<std::string>& done);

  /// Returns all entries to the queue, ahead of those waiting, and removes the in-work file if it is
  /// empty.
  [[nodiscard]] bool GiveBack();

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
