#include "util/locked_file.h"

#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>

#include "util/termination.h"

namespace keldo {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kLongestWait{10};
constexpr int kRetryMilliseconds = 20;

// Takes the lock without sleeping in the kernel, so that a termination request is not kept waiting.
bool Lock(int fd, Clock::time_point deadline) {
  while (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK && errno != EINTR) return false;
    if (Clock::now() >= deadline) {
      errno = EBUSY;
      return false;
    }
    static_cast<void>(WaitForEvents({}, kRetryMilliseconds));
  }
  return true;
}

bool IsStillAt(int fd, const std::string& path) {
  struct stat held {};
  struct stat current {};
  return ::fstat(fd, &held) == 0 && ::stat(path.c_str(), &current) == 0 &&
         held.st_dev == current.st_dev && held.st_ino == current.st_ino;
}

}  // namespace

UniqueFd OpenLocked(const std::string& path, const std::function<UniqueFd()>& open) {
  const Clock::time_point deadline = Clock::now() + kLongestWait;
  do {
    UniqueFd fd = open();
    if (!fd.valid() || !Lock(fd.get(), deadline)) return {};
    if (IsStillAt(fd.get(), path)) return fd;
  } while (Clock::now() < deadline);
  errno = EBUSY;
  return {};
}

}  // namespace keldo
