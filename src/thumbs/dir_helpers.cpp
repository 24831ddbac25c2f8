#include "thumbs/dir_helpers.h"

#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "platform/file.h"
#include "platform/index_ipc.h"

namespace keldo {
namespace {

constexpr std::uint64_t kLeastFreeBytes = std::uint64_t{1} << 30;

}  // namespace

bool checkCreateDir(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) return true;
  if (mkdir(path.c_str(), 0777) == 0 || errno == EEXIST) return true;
  if (errno == ENOENT) return false;
  syslog(LOG_ERR, "%s:%d %s: %s(%d) - mkdir(%s, 0777 ), errno: %d\n", "keldothumb", 507,
         "keldothumb", "checkCreateDir", 507, path.c_str(), errno);
  return false;
}

bool RemoveFilesByPattern(const std::string& directory, const std::string& pattern) {
  bool all_removed = true;
  for (const std::string& path : keldoindexutils::filesystem::GlobFiles(directory, pattern)) {
    if (unlink(path.c_str()) != 0) all_removed = false;
  }
  return all_removed;
}

bool HasDiskSpace(const std::string& directory) {
  return KLIBGetFsAvailSize(directory.c_str()) >= kLeastFreeBytes;
}

}  // namespace keldo
