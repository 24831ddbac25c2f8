// Watching directory trees.
#pragma once

#include <sys/types.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "util/deadline.h"
#include "util/handles.h"

struct inotify_event;
struct stat;

namespace keldo::ctl {

/// One inotify instance. If the kernel provides none, the object exists but watches nothing.
class Inotify {
 public:
  Inotify();
  /// Takes ownership of an instance; -1 with errno set if there is none.
  explicit Inotify(int fd);
  virtual ~Inotify() = default;
  Inotify(const Inotify&) = delete;
  Inotify& operator=(const Inotify&) = delete;

  /// Readable when there are events; -1 without an instance.
  [[nodiscard]] int fd() const { return fd_.get(); }

  /// Watches a directory; follows links. Returns the number of the watch, which is the existing one
  /// if the directory is already watched; -1 with errno set on failure.
  [[nodiscard]] virtual int Add(const std::string& directory);
  virtual void Remove(int watch);

  /// The next events, as the kernel writes them; empty when there are none. Valid until the next
  /// call.
  [[nodiscard]] std::string_view Read();

 private:
  static constexpr std::size_t kBufferSize = 65536;

  UniqueFd fd_;
  int error_ = 0;
  alignas(8) std::array<char, kBufferSize> buffer_{};
};

/// The message when directories cannot be watched: which limit is reached, and how to raise it.
/// `error` is the errno value of Inotify::Add.
[[nodiscard]] std::string ShortageText(int error);

/// Receives what happens in the trees.
class TreeListener {
 public:
  virtual ~TreeListener() = default;

  /// A photo was added or changed.
  virtual void OnPhoto(const std::string& directory, const std::string& photo) = 0;
  /// A directory was found, or has just appeared (`is_new`). It may hold photos already.
  virtual void OnDirectory(const std::string& directory, bool is_new) = 0;
  /// A directory no longer exists.
  virtual void OnGone(const std::string& directory) = 0;
  virtual void OnRootGone(const std::string& root) = 0;
  virtual void OnRootBack(const std::string& root) = 0;
  /// The kernel dropped events: anything may have happened.
  virtual void OnOverflow() = 0;
  /// A directory gets no watch, for the first time since all had one. `error` is an errno value.
  virtual void OnShortage(int error) = 0;
  /// A directory cannot be read.
  virtual void OnUnreadable(const std::string& directory, int error) = 0;
};

/// Watches every directory that a walk visits: those that the filter accepts, on the root's file
/// system, with links followed, each directory once. Events only say where to look: the tree may
/// have changed again meanwhile, so its current state decides.
///
/// Directories to visit are kept in a list and visited bit by bit, so that the owner can do other
/// things while a large tree is walked.
class DirectoryTree {
 public:
  using TimePoint = Clock::time_point;

  DirectoryTree(Inotify& inotify, TreeListener& listener);

  /// Adds a tree. `root` is absolute, without a trailing slash unless it is "/".
  void AddRoot(const std::string& root);

  /// Handles the pending events, up to a limit that keeps this short.
  void ReadEvents();
  /// Handles events in the format of the kernel.
  void HandleEvents(std::string_view events);

  [[nodiscard]] bool HasWork() const { return !pending_.empty() || sweep_; }
  /// Visits directories until none is left or the time is up; at least one.
  void Work(TimePoint until);

  /// Visits everything, to find what was not reported.
  void LookAtAll();
  /// Visits the directories without a watch and everything below them, and checks the roots.
  void LookAtUnwatched();

  /// Directories with and without a watch.
  [[nodiscard]] std::size_t watched() const { return by_watch_.size(); }
  [[nodiscard]] std::size_t unwatched() const { return nodes_.size() - by_watch_.size(); }

 private:
  using Identity = std::pair<dev_t, ino_t>;

  struct Node {
    int watch;  ///< -1 for a directory without one.
    Identity identity;
    unsigned round;  ///< The last visit to everything that came here.
  };
  using Nodes = std::map<std::string, Node>;

  struct Root {
    std::string path;
    bool gone = false;
    std::optional<dev_t> bare;  ///< The device below the file system that was unmounted.
  };

  // A directory to visit.
  struct Visit {
    std::string path;
    std::optional<dev_t> device;  ///< The tree's; nothing for a root.
    bool is_new = false;
    bool is_forced = false;  ///< Also visit what is below a known directory.
  };

  void Enqueue(Visit visit);
  void VisitOne(const Visit& visit);
  [[nodiscard]] bool IsPassedOver(const Visit& visit, const struct stat& status);
  [[nodiscard]] bool IsReachedOtherwise(const Visit& visit, const Identity& identity);
  [[nodiscard]] bool Register(const Visit& visit, const Identity& identity);
  [[nodiscard]] bool Revisit(const Visit& visit, Nodes::iterator at, int watch);
  void Insert(const Visit& visit, const Node& node);
  void ReadBelow(const Visit& visit, dev_t device);
  void Vanished(const std::string& path);
  void CannotBeRead(const std::string& path, int error);
  void ForgetTree(const std::string& path);
  void ForgetNode(Nodes::iterator at);
  void ForgetAliasesBelow(const std::string& path);
  void Sweep();

  void Handle(const inotify_event& event, const std::string& name);
  void EntryChanged(const std::string& directory, const std::string& name, std::uint32_t mask);
  void Unmounted(const std::string& directory);
  [[nodiscard]] Root* FindRoot(const std::string& path);

  Inotify& inotify_;
  TreeListener& listener_;
  std::vector<Root> roots_;
  Nodes nodes_;
  std::unordered_map<int, Nodes::iterator> by_watch_;
  std::map<Identity, Nodes::iterator> by_identity_;
  /// Other paths to directories that are watched.
  std::map<std::string, Identity> aliases_;
  std::vector<Visit> pending_;  ///< The last one is visited next.
  unsigned round_ = 0;
  bool sweep_ = false;  ///< Everything is being visited; what is not found is gone.
  bool shortage_reported_ = false;
};

}  // namespace keldo::ctl
