#include "util/files.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>

#include "util/deadline.h"
#include "util/termination.h"

namespace keldo {
namespace {

constexpr mode_t kReadableForAll = 0644;

// "/var/spool/.keldo-XXXXXX" for any file of /var/spool. Not the file's name with something added:
// that may be longer than the file system takes.
std::string TemporaryBeside(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return path.substr(0, slash == std::string::npos ? 0 : slash + 1) + ".keldo-XXXXXX";
}

bool Fill(UniqueFd fd, std::string_view content) {
  if (!WriteAll(fd.get(), content) || ::fchmod(fd.get(), kReadableForAll) != 0) return false;
  return ::close(fd.release()) == 0;  // some file systems report a full disk only now
}

constexpr std::chrono::seconds kLongestWait{10};
constexpr int kRetryMilliseconds = 20;

// Does not sleep in the kernel, where a termination request could not interrupt it.
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

UniqueFd OpenRegularFile(const char* path) {
  UniqueFd fd(::open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat status {};
  if (!fd.valid() || ::fstat(fd.get(), &status) != 0) return UniqueFd();
  if (S_ISREG(status.st_mode)) return fd;
  fd.reset();
  errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
  return fd;
}

bool ReadToEnd(int fd, std::string& content) {
  std::array<char, 16384> block;
  while (true) {
    const ssize_t got = ::read(fd, block.data(), block.size());
    if (got == 0) return true;
    if (got > 0) {
      content.append(block.data(), static_cast<std::size_t>(got));
    } else if (errno != EINTR) {
      return false;
    }
  }
}

std::optional<std::string> ReadRegularFile(const char* path) {
  const UniqueFd fd = OpenRegularFile(path);
  std::string content;
  if (!fd.valid() || !ReadToEnd(fd.get(), content)) return std::nullopt;
  return content;
}

bool WriteAll(int fd, std::string_view content) {
  while (!content.empty()) {
    const ssize_t written = ::write(fd, content.data(), content.size());
    if (written >= 0) {
      content.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

bool ReplaceFile(const std::string& path, std::string_view content) {
  std::string temporary = TemporaryBeside(path);
  UniqueFd fd(::mkostemp(temporary.data(), O_CLOEXEC));
  if (!fd.valid()) return false;
  if (Fill(std::move(fd), content) && ::rename(temporary.c_str(), path.c_str()) == 0) return true;
  const int reason = errno;
  ::unlink(temporary.c_str());
  errno = reason;
  return false;
}

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
