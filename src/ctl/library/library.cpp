#include "ctl/library/library.h"

#include <sys/stat.h>

#include <cstring>
#include <set>
#include <utility>

#include "thumbs/directories.h"
#include "thumbs/tree_walk.h"

namespace keldo::ctl {

bool ScanLibrary(const std::vector<std::string>& roots, PhotoScanner& scanner, Console& console,
                 const std::function<void(DirectoryState)>& visit) {
  bool complete = true;
  std::set<std::pair<dev_t, ino_t>> seen;
  // Two roots may lead to one directory by different paths.
  const auto is_new = [&seen](const std::string& directory) {
    struct stat status {};
    return ::stat(directory.c_str(), &status) != 0 ||
           seen.insert({status.st_dev, status.st_ino}).second;
  };
  const TreeVisitor visitor{[&](const std::string& directory) {
                              if (!is_new(directory)) return;
                              DirectoryState state = scanner.Scan(directory);
                              if (state.error != 0) {
                                complete = false;
                                console.Fail(directory, std::strerror(state.error));
                              }
                              if (!state.photos.empty()) visit(std::move(state));
                            },
                            [&](const std::string& directory, int error) {
                              complete = false;
                              console.Fail(directory, std::strerror(error));
                            }};
  for (const std::string& root : roots) {
    if (IsFileSystemRejected(root)) {
      complete = false;
      console.Fail(root, "is on a network share or a disk image, where no thumbnails are made");
      continue;
    }
    WalkDirectories(root, visitor);
  }
  return complete;
}

}  // namespace keldo::ctl
