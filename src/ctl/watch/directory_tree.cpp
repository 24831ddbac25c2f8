#include "ctl/watch/directory_tree.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "thumbs/tree_walk.h"
#include "util/handles.h"
#include "util/path.h"

namespace keldo::ctl {
namespace {

std::string PathBelow(const std::string& directory, const std::string& name) {
  return directory.ends_with('/') ? directory + name : JoinPath(directory, name);
}

bool IsDirectoryAt(const std::string& path, struct stat& status) {
  return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// True when a watch is refused because of a limit, not because of the directory.
bool IsShortage(int error) {
  return error == ENOSPC || error == ENOMEM || error == EMFILE || error == ENFILE ||
         error == ENOSYS;
}

bool IsAtOrBelow(const std::string& path, const std::string& top) {
  if (top == "/" || path == top) return true;
  return path.size() > top.size() && path.starts_with(top) && path[top.size()] == '/';
}

}  // namespace

DirectoryTree::DirectoryTree(Inotify& inotify, TreeListener& listener)
    : inotify_(inotify), listener_(listener) {}

void DirectoryTree::AddRoot(const std::string& root) {
  roots_.push_back({root, false, std::nullopt});
  Enqueue({root, std::nullopt});
}

void DirectoryTree::Work(TimePoint until) {
  do {
    if (!pending_.empty()) {
      const Visit visit = std::move(pending_.back());
      pending_.pop_back();
      VisitOne(visit);
    }
    if (pending_.empty() && sweep_) Sweep();
  } while (HasWork() && Clock::now() < until);
}

void DirectoryTree::LookAtAll() {
  ++round_;
  sweep_ = true;
  for (auto root = roots_.rbegin(); root != roots_.rend(); ++root)
    Enqueue({root->path, std::nullopt, false, true});
}

void DirectoryTree::LookAtUnwatched() {
  if (unwatched() == 0) shortage_reported_ = false;
  for (auto at = nodes_.rbegin(); at != nodes_.rend(); ++at) {
    if (at->second.watch < 0) Enqueue({at->first, at->second.identity.first});
  }
  // A root may be back, or another file system may be mounted on it.
  for (const Root& root : roots_)
    Enqueue({root.path, std::nullopt});
}

void DirectoryTree::Enqueue(Visit visit) {
  if (FindRoot(visit.path) != nullptr) visit.device.reset();
  pending_.push_back(std::move(visit));
}

DirectoryTree::Root* DirectoryTree::FindRoot(const std::string& path) {
  const auto at = std::find_if(roots_.begin(), roots_.end(),
                               [&path](const Root& root) { return root.path == path; });
  return at == roots_.end() ? nullptr : &*at;
}

// The watch is added before the directory is read: what appears later is then reported, and what
// appeared earlier is read.
void DirectoryTree::VisitOne(const Visit& visit) {
  struct stat status {};
  if (!IsDirectoryAt(visit.path, status)) return Vanished(visit.path);
  if (IsPassedOver(visit, status)) return;
  const Identity identity{status.st_dev, status.st_ino};
  if (IsReachedOtherwise(visit, identity)) return;
  if (Register(visit, identity)) ReadBelow(visit, status.st_dev);
}

// Other file systems do not belong to the tree. Neither does the bare directory that an unmounted
// file system leaves behind.
bool DirectoryTree::IsPassedOver(const Visit& visit, const struct stat& status) {
  if (visit.device && *visit.device != status.st_dev) {
    ForgetTree(visit.path);
    return true;
  }
  Root* root = FindRoot(visit.path);
  if (root == nullptr || !root->gone) return false;
  if (root->bare == status.st_dev) return true;
  root->gone = false;
  root->bare.reset();
  listener_.OnRootBack(root->path);
  return false;
}

// True when the directory is watched under another path that still leads to it, through a link.
bool DirectoryTree::IsReachedOtherwise(const Visit& visit, const Identity& identity) {
  const auto known = by_identity_.find(identity);
  if (known == by_identity_.end() || known->second->first == visit.path) return false;
  const std::string other = known->second->first;
  struct stat status {};
  if (!IsDirectoryAt(other, status) || Identity{status.st_dev, status.st_ino} != identity) {
    // It was moved here, but the event is still to come.
    ForgetTree(other);
    Enqueue({other, identity.first, true});
    return false;
  }
  ForgetTree(visit.path);
  aliases_[visit.path] = identity;
  return true;
}

// Makes sure that the directory is watched. True when the directories below have to be visited.
bool DirectoryTree::Register(const Visit& visit, const Identity& identity) {
  const int watch = inotify_.Add(visit.path);
  if (watch < 0 && !IsShortage(errno)) {
    CannotBeRead(visit.path, errno);
    return false;
  }
  if (watch < 0 && !std::exchange(shortage_reported_, true)) listener_.OnShortage(errno);

  const auto at = nodes_.find(visit.path);
  const bool is_same = at != nodes_.end() && at->second.identity == identity &&
                       (at->second.watch == watch || at->second.watch < 0);
  if (is_same) return Revisit(visit, at, watch);
  // Another directory has taken this path.
  if (at != nodes_.end()) ForgetTree(visit.path);
  Insert(visit, {watch, identity, round_});
  return true;
}

void DirectoryTree::CannotBeRead(const std::string& path, int error) {
  if (error == ENOENT || error == ENOTDIR) return Vanished(path);
  ForgetTree(path);
  listener_.OnUnreadable(path, error);
}

// Goes below a known directory only if there may be something new.
bool DirectoryTree::Revisit(const Visit& visit, Nodes::iterator at, int watch) {
  Node& node = at->second;
  const bool was_unwatched = node.watch < 0;
  if (!was_unwatched && (!visit.is_forced || node.round == round_)) return false;
  if (was_unwatched && watch >= 0) by_watch_[watch] = at;
  node.watch = watch;
  node.round = round_;
  listener_.OnDirectory(visit.path, false);
  return true;
}

void DirectoryTree::Insert(const Visit& visit, const Node& node) {
  aliases_.erase(visit.path);
  const auto at = nodes_.insert_or_assign(visit.path, node).first;
  by_identity_[node.identity] = at;
  if (node.watch >= 0) by_watch_[node.watch] = at;
  listener_.OnDirectory(visit.path, visit.is_new);
}

void DirectoryTree::ReadBelow(const Visit& visit, dev_t device) {
  const UniqueDir stream(::opendir(visit.path.c_str()));
  if (!stream) {
    CannotBeRead(visit.path, errno);
    return;
  }
  std::vector<std::string> names = WalkedDirectoriesIn(stream.get());
  // Directories are visited from the back, so the first in byte order goes last.
  std::sort(names.rbegin(), names.rend());
  for (const std::string& name : names)
    Enqueue({PathBelow(visit.path, name), device, visit.is_new, visit.is_forced});
}

void DirectoryTree::Vanished(const std::string& path) {
  ForgetTree(path);
  for (Root& root : roots_) {
    struct stat status {};
    if (root.gone || !IsAtOrBelow(root.path, path) || IsDirectoryAt(root.path, status)) continue;
    root.gone = true;
    listener_.OnRootGone(root.path);
  }
}

// Forgets a directory and what is below it. What is still reachable through a link is visited
// there.
void DirectoryTree::ForgetTree(const std::string& path) {
  ForgetAliasesBelow(path);
  const std::string below = path.ends_with('/') ? path : path + "/";
  const auto at = nodes_.find(path);
  if (at != nodes_.end()) ForgetNode(at);
  for (auto child = nodes_.lower_bound(below);
       child != nodes_.end() && child->first.starts_with(below);) {
    ForgetNode(child++);
  }
}

void DirectoryTree::ForgetAliasesBelow(const std::string& path) {
  const std::string below = path.ends_with('/') ? path : path + "/";
  aliases_.erase(path);
  const auto first = aliases_.lower_bound(below);
  auto last = first;
  while (last != aliases_.end() && last->first.starts_with(below))
    ++last;
  aliases_.erase(first, last);
}

void DirectoryTree::ForgetNode(Nodes::iterator at) {
  const auto [path, node] = *at;
  if (node.watch >= 0) {
    by_watch_.erase(node.watch);
    inotify_.Remove(node.watch);
  }
  const auto known = by_identity_.find(node.identity);
  if (known != by_identity_.end() && known->second == at) by_identity_.erase(known);
  nodes_.erase(at);
  for (auto alias = aliases_.begin(); alias != aliases_.end();) {
    const auto here = alias++;
    if (here->second != node.identity) continue;
    Enqueue({here->first, node.identity.first, true});
    aliases_.erase(here);
  }
  listener_.OnGone(path);
}

void DirectoryTree::Sweep() {
  sweep_ = false;
  std::vector<std::string> gone;
  for (const auto& [path, node] : nodes_) {
    if (node.round != round_) gone.push_back(path);
  }
  for (const std::string& path : gone)
    ForgetTree(path);
}

}  // namespace keldo::ctl
