// The directories of a tree. There are two walks. WalkAccepted is keldothumb's and the indexer's:
// the directories come in the order of the file system, and the filter holds for the root too.
// WalkDirectories is for programs that show a library to people.
#pragma once

#include <dirent.h>

#include <functional>
#include <string>
#include <vector>

namespace keldo {

/// Calls `visit` for `root` and every directory below it that the filter accepts, parents first,
/// without leaving its file system. Symbolic links are followed. Returns -1 with errno set when the
/// walk broke off. Silent. One walk at a time.
int WalkAccepted(const std::string& root, const std::function<void(const char* directory)>& visit);

/// What WalkDirectories reports to its caller.
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
/// system. Symbolic links are followed, and each directory is visited once, so that circular links
/// do no harm. The root's own name is not filtered, since somebody asked for it. Silent.
void WalkDirectories(const std::string& root, const TreeVisitor& visitor);

}  // namespace keldo
