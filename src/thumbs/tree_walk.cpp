#include "thumbs/tree_walk.h"

#include <fcntl.h>
#include <ftw.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <set>
#include <utility>

#include "thumbs/directories.h"
#include "util/handles.h"
#include "util/path.h"

namespace keldo {
namespace {

constexpr int kWalkDescriptors = 100;

// What the walk that runs calls. nftw gives its callback no argument, so this has nowhere else to
// live.
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables)
const std::function<void(const char*)>* walk_visit = nullptr;

int VisitEntry(const char* path, const struct stat* /*status*/, int type, struct FTW* position) {
  if (type != FTW_D || !IsDirNameAccepted(path + position->base)) return FTW_SKIP_SUBTREE;
  (*walk_visit)(path);
  return FTW_CONTINUE;
}

class Walk {
 public:
  Walk(std::string root, const TreeVisitor& visitor) : visitor_(visitor) {
    pending_.push_back(std::move(root));
  }

  void Run() {
    while (!pending_.empty()) {
      const std::string directory = std::move(pending_.back());
      pending_.pop_back();
      Visit(directory);
    }
  }

 private:
  void Visit(const std::string& directory) {
    const UniqueDir stream(opendir(directory.c_str()));
    if (!stream) {
      visitor_.unreadable(directory, errno);
      return;
    }
    struct stat status {};
    if (fstat(dirfd(stream.get()), &status) != 0 || !IsNew(status)) return;
    visitor_.directory(directory);
    std::vector<std::string> below = WalkedDirectoriesIn(stream.get());
    // Taken from the back, so that the first in byte order is the next.
    std::sort(below.rbegin(), below.rend());
    for (const std::string& name : below)
      pending_.push_back(directory.ends_with('/') ? directory + name : JoinPath(directory, name));
  }

  // Notes a directory; false for one that was visited, or that lies on another file system.
  bool IsNew(const struct stat& status) {
    if (!device_) device_ = status.st_dev;
    return *device_ == status.st_dev && visited_.insert(status.st_ino).second;
  }

  const TreeVisitor& visitor_;
  std::vector<std::string> pending_;
  std::optional<dev_t> device_;
  std::set<ino_t> visited_;
};

}  // namespace

int WalkAccepted(const std::string& root, const std::function<void(const char* directory)>& visit) {
  walk_visit = &visit;
  return nftw(root.c_str(), VisitEntry, kWalkDescriptors, FTW_MOUNT | FTW_ACTIONRETVAL);
}

std::vector<std::string> WalkedDirectoriesIn(DIR* directory) {
  std::vector<std::string> names;
  while (const dirent* entry = readdir(directory)) {
    const bool may_be_directory =
        entry->d_type == DT_DIR || entry->d_type == DT_LNK || entry->d_type == DT_UNKNOWN;
    if (!may_be_directory || !IsDirNameAccepted(entry->d_name)) continue;
    struct stat status {};
    if (entry->d_type != DT_DIR &&
        (fstatat(dirfd(directory), entry->d_name, &status, 0) != 0 || !S_ISDIR(status.st_mode))) {
      continue;
    }
    names.emplace_back(entry->d_name);
  }
  return names;
}

void WalkDirectories(const std::string& root, const TreeVisitor& visitor) {
  Walk(root, visitor).Run();
}

}  // namespace keldo
