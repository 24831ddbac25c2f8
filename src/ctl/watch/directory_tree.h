// Directory trees under observation.
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

/// One inotify instance. Where the kernel gives none, it is there all the same, and watches
/// nothing.
class Inotify {
 public:
  Inotify();
  /// Takes an instance over; -1 with errno set where there was none to be had.
  explicit Inotify(int fd);
  virtual ~Inotify() = default;
  Inotify(const Inotify&) = delete;
  Inotify& operator=(const Inotify&) = delete;

  /// Readable when there are events; -1 without an instance.
  [[nodiscard]] int fd() const { return fd_.get(); }

  /// Watches a directory, links followed. Returns the number of the watch, which is the one it had
  /// already where the same directory is watched; else -1 with errno set.
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

/// What to tell a person when directories cannot be watched: which limit is reached and how it is
/// raised. `error` is the errno value of Inotify::Add.
[[nodiscard]] std::string ShortageText(int error);

/// Who is told what happens in the trees.
class TreeListener {
 public:
  virtual ~TreeListener() = default;

  /// A photo came or changed.
  virtual void OnPhoto(const std::string& directory, const std::string& photo) = 0;
  /// A directory is to be looked at: it was found, or came just now (`is_new`), and may hold photos
  /// already.
  virtual void OnDirectory(const std::string& directory, bool is_new) = 0;
  /// A directory is not there any more.
  virtual void OnGone(const std::string& directory) = 0;
  virtual void OnRootGone(const std::string& root) = 0;
  virtual void OnRootBack(const std::string& root) = 0;
  /// The kernel dropped events: anything may have happened.
  virtual void OnOverflow() = 0;
  /// A directory gets no watch, the first one since all had one. `error` is an errno value.
  virtual void OnShortage(int error) = 0;
  /// A directory cannot be read.
  virtual void OnUnreadable(const std::string& directory, int error) = 0;
};

/// Watches every directory of the trees that a walk visits: those that the filter accepts, on the
/// root's file system, links followed, each directory once. Events only say where to look; what is
/// there then decides, since the tree may have changed again meanwhile.
///
/// Directories that wait to be visited are kept in a list and visited bit by bit, so that its owner
/// can do other things during the walk over a large tree.
class DirectoryTree {
 public:
  using TimePoint = Clock::time_point;

  DirectoryTree(Inotify& inotify, TreeListener& listener);

  /// Takes a tree in. `root` is absolute, without a slash at its end unless it is "/".
  void AddRoot(const std::string& root);

  /// Works through the events that are there, up to a number that keeps this short.
  void ReadEvents();
  /// Works through events as the kernel writes them.
  void TakeEvents(std::string_view events);

  [[nodiscard]] bool HasWork() const { return !pending_.empty() || sweep_; }
  /// Visits directories until none waits or the time has come; at least one.
  void Work(TimePoint until);

  /// Visits everything, to find what went unreported.
  void LookAtAll();
  /// Visits the directories without a watch, with what is below them, and sees to the roots.
  void LookAtUnwatched();

  /// Directories with and without a watch.
  [[nodiscard]] std::size_t watched() const { return by_watch_.size(); }
  [[nodiscard]] std::size_t unwatched() const { return nodes_.size() - by_watch_.size(); }

 private:
  using Identity = std::pair<dev_t, ino_t>;

  struct Node {
    int watch;  ///< -1 for a directory without one.
    Identity identity;
    unsigned round;  ///< Of the visits to everything, the last that came here.
  };
  using Nodes = std::map<std::string, Node>;

  struct Root {
    std::string path;
    bool gone = false;
    std::optional<dev_t> bare;  ///< What lay under the file system that was unmounted.
  };

  // A directory that is to be visited.
  struct Visit {
    std::string path;
    std::optional<dev_t> device;  ///< The tree's; a root has its own.
    bool is_new = false;
    bool is_forced = false;  ///< Also what is below a directory that is known.
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
  /// Further paths to directories that are watched under another one.
  std::map<std::string, Identity> aliases_;
  std::vector<Visit> pending_;  ///< The last one is the next.
  unsigned round_ = 0;
  bool sweep_ = false;  ///< Everything is being visited; what is not met is gone.
  bool shortage_told_ = false;
};

}  // namespace keldo::ctl
