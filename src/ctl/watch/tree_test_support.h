// Shared by the tests of the directory tree.
#pragma once

#include <gtest/gtest.h>
#include <sys/inotify.h>

#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "ctl/watch/directory_tree.h"
#include "support/temp_dir.h"

namespace keldo::ctl {

/// Records what happens.
class RecordingListener : public TreeListener {
 public:
  void OnPhoto(const std::string& directory, const std::string& photo) override {
    photos.insert(directory + "/" + photo);
  }
  void OnDirectory(const std::string& directory, bool is_new) override {
    directories.push_back(directory);
    if (is_new) fresh.insert(directory);
  }
  void OnGone(const std::string& directory) override { gone.insert(directory); }
  void OnRootGone(const std::string& root) override { roots_gone.push_back(root); }
  void OnRootBack(const std::string& root) override { roots_back.push_back(root); }
  void OnOverflow() override { ++overflows; }
  void OnShortage(int error) override { shortages.push_back(error); }
  void OnUnreadable(const std::string& directory, int error) override {
    unreadable[directory] = error;
  }

  std::set<std::string> photos;
  std::vector<std::string> directories;
  std::set<std::string> fresh;
  std::set<std::string> gone;
  std::vector<std::string> roots_gone;
  std::vector<std::string> roots_back;
  int overflows = 0;
  std::vector<int> shortages;
  std::map<std::string, int> unreadable;
};

/// An instance with a limited number of watches, like a kernel at its limit.
class LimitedInotify : public Inotify {
 public:
  int Add(const std::string& directory) override;
  void Remove(int watch) override;

  std::size_t most = static_cast<std::size_t>(-1);
  int error = 0;  ///< The value of errno then.
  std::function<void(const std::string& directory)> before_add;
  std::set<int> watches;
  std::map<std::string, int> watch_of;  ///< As last added.
};

/// A tree over a temporary directory. The kernel reports each change before the call that makes it
/// returns, so the tests need not wait.
class DirectoryTreeTest : public ::testing::Test {
 protected:
  DirectoryTreeTest();

  [[nodiscard]] std::string At(const std::string& name) const {
    return name.empty() ? root_ : root_ + "/" + name;
  }
  void MakeDirs(const std::string& name) const { std::filesystem::create_directories(At(name)); }
  /// Writes a file, and closes it.
  void Write(const std::string& name, const std::string& text = "photo") const;
  void Move(const std::string& from, const std::string& to) const {
    std::filesystem::rename(At(from), At(to));
  }
  void Remove(const std::string& name) const { std::filesystem::remove_all(At(name)); }

  /// Adds the test's directory as the only tree.
  void Begin();
  /// Lets the tree handle all events and visit all directories.
  void Settle();
  /// Forgets what was recorded.
  void Clear() { listener_ = RecordingListener(); }
  /// The paths below the test's directory, of full ones.
  [[nodiscard]] std::set<std::string> Below(const std::set<std::string>& paths) const;
  [[nodiscard]] std::set<std::string> Photos() const { return Below(listener_.photos); }
  [[nodiscard]] std::set<std::string> Directories() const {
    return Below({listener_.directories.begin(), listener_.directories.end()});
  }
  [[nodiscard]] std::set<std::string> Gone() const { return Below(listener_.gone); }
  /// True when a photo that is written into the directory now is reported.
  [[nodiscard]] bool IsWatched(const std::string& name);

  testing::TempDir temp_;
  std::string root_ = temp_.path() + "/tree";
  RecordingListener listener_;
  LimitedInotify inotify_;
  DirectoryTree tree_{inotify_, listener_};
};

}  // namespace keldo::ctl
