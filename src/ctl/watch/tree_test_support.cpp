#include "ctl/watch/tree_test_support.h"

#include <poll.h>

#include <cerrno>
#include <fstream>

namespace keldo::ctl {

int LimitedInotify::Add(const std::string& directory) {
  if (before_add) before_add(directory);
  const int watch = Inotify::Add(directory);
  if (watch < 0) return watch;
  if (!watches.contains(watch) && watches.size() >= most) {
    Inotify::Remove(watch);
    errno = error;
    return -1;
  }
  watches.insert(watch);
  watch_of[directory] = watch;
  return watch;
}

void LimitedInotify::Remove(int watch) {
  watches.erase(watch);
  Inotify::Remove(watch);
}

DirectoryTreeTest::DirectoryTreeTest() {
  std::filesystem::create_directory(root_);
}

void DirectoryTreeTest::Write(const std::string& name, const std::string& text) const {
  std::ofstream file(At(name));
  file << text;
  file.close();
  ASSERT_TRUE(file) << At(name);
}

void DirectoryTreeTest::Begin() {
  tree_.AddRoot(root_);
  Settle();
}

void DirectoryTreeTest::Settle() {
  pollfd event{inotify_.fd(), POLLIN, 0};
  do {
    tree_.ReadEvents();
    while (tree_.HasWork())
      tree_.Work(Clock::now());
  } while (inotify_.fd() >= 0 && ::poll(&event, 1, 0) > 0);
}

std::set<std::string> DirectoryTreeTest::Below(const std::set<std::string>& paths) const {
  std::set<std::string> names;
  for (const std::string& path : paths)
    names.insert(path == root_ ? "" : path.substr(root_.size() + 1));
  return names;
}

bool DirectoryTreeTest::IsWatched(const std::string& name) {
  const std::string photo = name.empty() ? "probe.jpg" : name + "/probe.jpg";
  Clear();
  Write(photo);
  Settle();
  const bool reported = Photos() == std::set<std::string>{photo};
  Remove(photo);
  Settle();
  return reported;
}

}  // namespace keldo::ctl
