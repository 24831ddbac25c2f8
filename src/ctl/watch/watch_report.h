// What a watch reports about its runs.
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
  bool has_failed = true;  ///< Otherwise the run left it undone.
};

/// What one run over a directory achieved.
struct RunResult {
  std::string directory;
  int made = 0;       ///< Photos that have more thumbnails than before.
  int completed = 0;  ///< Of these: had some before, and have all now.
  std::vector<Trouble> troubles;
};

/// Counts what was made between two scans of a directory. Leaves `troubles` empty.
[[nodiscard]] RunResult Compare(const DirectoryState& before, const DirectoryState& after);

/// True when the run achieved something: thumbnails were made, or photos newly failed.
[[nodiscard]] bool IsProgress(const DirectoryState& before, const DirectoryState& after,
                              time_t run_began);

/// One line about a run, without a newline: "/photos/trip: 3 photos made, 1 failed (a.jpg: is
/// empty)". Empty if there is nothing to report.
[[nodiscard]] std::string TextOf(const RunResult& result);

/// Remembers which incomplete photos have been reported, so that each is reported once.
class TroubleMemory {
 public:
  /// Returns those incomplete photos of a directory that are new or differ from what was reported,
  /// and forgets those that are complete by now. Photos in `changed` always count as new.
  [[nodiscard]] std::vector<Trouble> Update(const std::string& directory,
                                            const std::vector<Trouble>& troubles,
                                            const std::set<std::string>& changed);
  void Forget(const std::string& directory) { reported_.erase(directory); }

  /// The number of directories with incomplete photos.
  [[nodiscard]] std::size_t size() const { return reported_.size(); }

 private:
  std::map<std::string, std::map<std::string, Trouble>> reported_;
};

}  // namespace keldo::ctl
