// How a tree handles the kernel's events.
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>

#include "ctl/watch/directory_tree.h"
#include "platform/file_types.h"
#include "platform/text.h"
#include "thumbs/directories.h"
#include "util/path.h"

namespace keldo::ctl {
namespace {

// Not IN_MODIFY: a photo that is still being written is of no use. IN_EXCL_UNLINK: neither is one
// that was deleted before its writer closed it.
constexpr std::uint32_t kEvents = IN_CLOSE_WRITE | IN_CREATE | IN_DELETE | IN_MOVED_FROM |
                                  IN_MOVED_TO | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF |
                                  IN_ONLYDIR | IN_EXCL_UNLINK;

constexpr long kUsualWatches = 524288;
constexpr long kUsualInstances = 1024;

// A limit of the kernel; 0 if it cannot be read.
long LimitOf(const std::string& name) {
  long limit = 0;
  std::ifstream("/proc/sys/fs/inotify/" + name) >> limit;
  return limit;
}

std::string LimitText(const std::string& what, const std::string& name, long usual) {
  const long limit = LimitOf(name);
  const std::string setting = "fs.inotify." + name;
  return "the system's limit on " + what + " is reached (/proc/sys/fs/inotify/" + name + " is " +
         std::to_string(limit) + "); raise it with: sysctl " + setting + "=" +
         std::to_string(std::max(usual, 2 * limit)) +
         ", and permanently with that setting in a file in /etc/sysctl.d";
}

// Reads at a time: in a flood of events there must be time for other things.
constexpr int kMostReads = 16;

bool IsPhotoName(const std::string& name) {
  return !keldoindexutils::StartWith(name, "._") &&
         keldoindexutils::DoesPhotoOnWebConvertFile(name);
}

// True for a new link, which is complete at once. A new file is reported again when its writer
// closes it.
bool IsMadeWhole(const struct stat& status) {
  return S_ISLNK(status.st_mode) || (S_ISREG(status.st_mode) && status.st_nlink > 1);
}

}  // namespace

Inotify::Inotify() : Inotify(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {}

Inotify::Inotify(int fd) : fd_(fd) {
  if (!fd_.valid()) error_ = errno;
}

int Inotify::Add(const std::string& directory) {
  if (fd_.valid()) return ::inotify_add_watch(fd_.get(), directory.c_str(), kEvents);
  errno = error_;
  return -1;
}

void Inotify::Remove(int watch) {
  // Fails only for a watch that the kernel has removed itself.
  static_cast<void>(::inotify_rm_watch(fd_.get(), watch));
}

std::string_view Inotify::Read() {
  const ssize_t count = ::read(fd_.get(), buffer_.data(), buffer_.size());
  if (count <= 0) return {};
  return {buffer_.data(), static_cast<std::size_t>(count)};
}

std::string ShortageText(int error) {
  if (error == ENOSPC) return LimitText("watched folders", "max_user_watches", kUsualWatches);
  if (error == EMFILE)
    return LimitText("programs that watch", "max_user_instances", kUsualInstances);
  return std::string("folders cannot be watched: ") + std::strerror(error);
}

void DirectoryTree::ReadEvents() {
  for (int i = 0; i < kMostReads; ++i) {
    const std::string_view events = inotify_.Read();
    if (events.empty()) return;
    HandleEvents(events);
  }
}

void DirectoryTree::HandleEvents(std::string_view events) {
  while (events.size() >= sizeof(inotify_event)) {
    inotify_event event{};
    std::memcpy(&event, events.data(), sizeof event);
    events.remove_prefix(sizeof event);
    const std::string_view padded = events.substr(0, event.len);
    Handle(event, std::string(padded.substr(0, padded.find('\0'))));
    events.remove_prefix(padded.size());
  }
}

void DirectoryTree::Handle(const inotify_event& event, const std::string& name) {
  if ((event.mask & IN_Q_OVERFLOW) != 0) return listener_.OnOverflow();
  const auto known = by_watch_.find(event.wd);
  if (known == by_watch_.end()) return;
  const std::string directory = known->second->first;
  const dev_t device = known->second->second.identity.first;
  if (!name.empty()) return EntryChanged(directory, name, event.mask);
  if ((event.mask & IN_UNMOUNT) != 0) return Unmounted(directory);
  // The kernel has removed the watch. There may be a new directory of the same name.
  if ((event.mask & IN_IGNORED) != 0) ForgetTree(directory);
  if ((event.mask & (IN_IGNORED | IN_DELETE_SELF | IN_MOVE_SELF)) != 0) {
    Enqueue({directory, device, true});
  } else if ((event.mask & IN_ATTRIB) != 0) {
    // What was unreadable may be readable now.
    listener_.OnDirectory(directory, true);
  }
}

void DirectoryTree::EntryChanged(const std::string& directory, const std::string& name,
                                 std::uint32_t mask) {
  const std::string path = directory.ends_with('/') ? directory + name : JoinPath(directory, name);
  const dev_t device = nodes_.at(directory).identity.first;
  if ((mask & IN_ISDIR) != 0) {
    if (IsDirNameAccepted(name) || FindRoot(path) != nullptr) Enqueue({path, device, true});
    return;
  }
  if ((mask & (IN_DELETE | IN_MOVED_FROM)) != 0) {
    // A link to a directory is gone. A photo that is gone leaves nothing to do.
    if (nodes_.contains(path) || aliases_.contains(path)) Enqueue({path, device, true});
    return;
  }
  if ((mask & (IN_CREATE | IN_MOVED_TO)) != 0) {
    struct stat entry {};
    struct stat target {};
    if (::lstat(path.c_str(), &entry) != 0) return;
    const bool is_link = S_ISLNK(entry.st_mode);
    if (is_link && ::stat(path.c_str(), &target) == 0 && S_ISDIR(target.st_mode)) {
      if (IsDirNameAccepted(name)) Enqueue({path, device, true});
      return;
    }
    if ((mask & IN_CREATE) != 0 && !IsMadeWhole(entry)) return;
  }
  if (IsPhotoName(name)) listener_.OnPhoto(directory, name);
}

// The kernel removes the watches of the whole file system, one by one.
void DirectoryTree::Unmounted(const std::string& directory) {
  Root* root = FindRoot(directory);
  if (root == nullptr || root->gone) return;
  root->gone = true;
  struct stat status {};
  if (::stat(directory.c_str(), &status) == 0) root->bare = status.st_dev;
  ForgetTree(directory);
  listener_.OnRootGone(directory);
}

}  // namespace keldo::ctl
