// Working the queue off so that no entry is lost, whenever the work ends.
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
  /// Locked while a run works the queue off; empty, and never removed.
  std::string run_lock = std::string(paths::kThumbQueueInWork) + ".lock";
};

/// The entries that one run has taken in hand. One run at a time has any.
///
/// What is waiting moves to the file of what is in work, is taken out of that when it is done, and
/// returns when it was not reached. Each entry is in one of the two files at any moment, or in
/// both: it is written where it goes to before it is removed from where it was. So the next run
/// finds what one that was killed has left.
///
/// Operations that fail return false; problem() and problem_path() then tell why.
class WorkInHand {
 public:
  explicit WorkInHand(QueuePaths paths) : paths_(std::move(paths)) {}

  /// Keeps other runs out. False, with is_busy(), when there is one.
  [[nodiscard]] bool KeepOthersOut();
  [[nodiscard]] bool is_busy() const { return is_busy_; }

  /// Takes all entries in hand: those waiting, after those that an earlier run left.
  [[nodiscard]] bool Take();

  /// The entries in hand, oldest first.
  [[nodiscard]] const std::vector<std::string>& entries() const { return entries_; }

  /// Lets go of entries for good.
  [[nodiscard]] bool Finish(const std::set<std::string>& done);

  /// Puts all entries in hand back, before those that are waiting, and removes the file of what is
  /// in work if nothing is in it.
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
