// The directories of a tree, for programs that look at a library rather than work on it.
#pragma once

#include <dirent.h>

#include <functional>
#include <string>
#include <vector>

namespace keldo {

/// What a walk tells its caller.
struct TreeVisitor {
  /// A directory, parents before what lies below them, siblings in byte order.
  std::function<void(const std::string& directory)> directory;
  /// A directory that cannot be read, and the errno value; the walk goes on beside it.
  std::function<void(const std::string& directory, int error)> unreadable;
};

/// The names of the directories in an open directory that a walk visits, links to directories among
/// them, in no order.
[[nodiscard]] std::vector<std::string> WalkedDirectoriesIn(DIR* directory);

/// Visits `root` and every directory below it that the filter accepts, without leaving its file
/// system. Symbolic links are followed, and each directory is visited once, so that links that lead
/// in a circle do no harm. The root's own name is not filtered: somebody asked for it. Silent.
void WalkDirectories(const std::string& root, const TreeVisitor& visitor);

}  // namespace keldo
