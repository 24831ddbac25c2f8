#include "ctl/watch/inotify.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>

namespace keldo::ctl {
namespace {

// Not IN_MODIFY: a photo that is still being written is of no use. IN_EXCL_UNLINK: nor is one that
// was deleted before its writer closed it.
constexpr std::uint32_t kEvents = IN_CLOSE_WRITE | IN_CREATE | IN_DELETE | IN_MOVED_FROM |
                                  IN_MOVED_TO | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF |
                                  IN_ONLYDIR | IN_EXCL_UNLINK;

constexpr long kUsualWatches = 524288;
constexpr long kUsualInstances = 1024;

// A limit of the kernel's; 0 when it cannot be read.
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
         ", and for good with that setting in a file in /etc/sysctl.d";
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
  // It fails only for a watch that the kernel has ended itself.
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

}  // namespace keldo::ctl
