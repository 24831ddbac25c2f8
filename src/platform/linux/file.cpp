#include "platform/file.h"

#include <fcntl.h>
#include <sys/statvfs.h>

#include <cerrno>
#include <limits>

namespace {

constexpr int kStandardFieldsAndPlatformWords = 9;
constexpr int kAccessAndModificationTime = 3;

bool Reach(const std::string& path, struct stat& status) {
  return ::stat(path.c_str(), &status) == 0;
}

}  // namespace

int KLIBCFileStat(const char* path, int flags, KLIBCFileRecord* record) {
  if (flags != kStandardFieldsAndPlatformWords || record == nullptr) {
    errno = EINVAL;
    return -1;
  }
  struct stat status {};
  if (::stat(path, &status) != 0) return -1;
  record->st = status;
  record->platform_words = {0, 0};  // Linux has no further file time that could be set.
  return 0;
}

int KLIBCFileUTime(const char* path, int mode, const std::array<timespec, 3>& times) {
  if (mode != kAccessAndModificationTime) {
    errno = EINVAL;
    return -1;
  }
  return ::utimensat(AT_FDCWD, path, times.data(), 0);  // reads the first two pairs
}

std::uint64_t KLIBGetFsAvailSize(const char* path) {
  struct statvfs volume {};
  if (::statvfs(path, &volume) != 0) return 0;
  // What an ordinary user may write, for the superuser too: the blocks that a file system keeps
  // back are there for the system, not for thumbnails.
  const std::uint64_t blocks = volume.f_bavail;
  const std::uint64_t block_size = volume.f_frsize;
  constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();
  if (block_size != 0 && blocks > kMost / block_size) return kMost;
  return blocks * block_size;
}

namespace keldoindexutils::stat {

bool DoesFileExist(const std::string& path) {
  struct ::stat status {};
  return Reach(path, status);
}

bool DoesDirExist(const std::string& path) {
  struct ::stat status {};
  return Reach(path, status) && S_ISDIR(status.st_mode);
}

bool DoesFileExistAndHasSize(const std::string& path) {
  struct ::stat status {};
  return Reach(path, status) && S_ISREG(status.st_mode) && status.st_size > 0;
}

}  // namespace keldoindexutils::stat
