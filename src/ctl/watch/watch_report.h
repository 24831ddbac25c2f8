// What the runs of a watch tell people.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "ctl/library/photo_scan.h"

namespace keldo::ctl {

/// A photo without all its thumbnails, and why.
struct Trouble {
  std::string photo;
  std::string reason;
  off_t bytes = 0;         ///< The photo's size.
  bool has_failed = true;  ///< Else the run left it out.
};

/// What one run over a directory brought.
struct RunResult {
  std::string directory;
  int made = 0;       ///< Photos that have more thumbnails than before.
  int completed = 0;  ///< Of these: had some before, and have all now.
  std::vector<Trouble> troubles;
};

/// Counts what was made between two looks at a directory. Troubles are not looked for.
[[nodiscard]] RunResult Compare(const DirectoryState& before, const DirectoryState& after);

/// True when the run was worth it: thumbnails were made, or it was found that they cannot be.
[[nodiscard]] bool IsProgress(const DirectoryState& before, const DirectoryState& after,
                              time_t run_began);

/// One line about a run, without a newline: "/photos/trip: 3 photos made, 1 failed (a.jpg: is
/// empty)". Empty when there is nothing to tell.
[[nodiscard]] std::string TextOf(const RunResult& result);

/// Remembers which troubles have been told, so that each is told once.
class TroubleMemory {
 public:
  /// Of the troubles that a directory has now, those that are new; those that are over are
  /// forgotten. What is known of the photos in `changed` does not count.
  [[nodiscard]] std::vector<Trouble> TakeNews(const std::string& directory,
                                              const std::vector<Trouble>& troubles,
                                              const std::set<std::string>& changed);
  void Forget(const std::string& directory) { told_.erase(directory); }

  /// The number of directories with troubles.
  [[nodiscard]] std::size_t size() const { return told_.size(); }

 private:
  std::map<std::string, std::map<std::string, Trouble>> told_;
};

}  // namespace keldo::ctl
