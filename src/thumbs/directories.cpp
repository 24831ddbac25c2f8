#include "thumbs/directories.h"

#include <strings.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "platform/ea_dir.h"
#include "platform/file.h"
#include "platform/index_ipc.h"
#include "platform/text.h"

namespace keldo {
namespace {

// The indexer finds the filter and the rest of this file under two sources.
constexpr const char* kFilterSource = "index";
constexpr const char* kJobSource = "keldothumb";

constexpr int kUnknownFileSystem = -1;
// Rejected besides the two classes: it looks local, but metadata directories do not belong on it.
constexpr int kUnsuitableFileSystem = 12;
constexpr std::uint64_t kLeastFreeBytes = std::uint64_t{1} << 30;

// The type code of the file system of `path`; a failure is logged under the caller's line value.
int FileSystemType(const std::string& path, int log_line) {
  const int type = KELDOGetFSType(path.c_str(), 0);
  if (type == kUnknownFileSystem) {
    syslog(LOG_DEBUG, "%s:%d failed to statfs %s, reason=[(%d)%s]", kFilterSource, log_line,
           path.c_str(), errno, std::strerror(errno));
  }
  return type;
}

bool HasExtension(const std::string& path, const char* extension) {
  return strcasecmp(keldoindexutils::GetFileExtension(path).c_str(), extension) == 0;
}

}  // namespace

bool IsDirNameAccepted(const std::string& name) {
  if (name == "." || name == "..") return false;
  if (keldoindexutils::StartWith(name, "._")) return false;
  if (name == "#recycle" || name == "#snapshot") return false;
  if (KELDOEAIsHiddenDir(name.c_str()) != 0) return false;
  // An application bundle, not an album. Only the lower-case ending means that: "Holiday.APP" is
  // somebody's folder.
  return keldoindexutils::GetFileExtension(name) != "app";
}

bool IsFileSystemRejected(const std::string& path) {
  const int type = FileSystemType(path, 66);
  if (type == kUnknownFileSystem) return false;
  if (KELDOFSIsRemoteFS(type) == 1) return true;
  return KELDOFSIsImageFS(type) == 1 || type == kUnsuitableFileSystem;
}

bool IsFileSystemAccepted(const std::string& path) {
  return !IsFileSystemRejected(path);
}

bool IsRemoteFileSystem(const std::string& path) {
  const int type = FileSystemType(path, 56);
  if (type == kUnknownFileSystem) return false;
  return KELDOFSIsRemoteFS(type) == 1 || type == kUnsuitableFileSystem;
}

bool IsX3f(const std::string& path) {
  return HasExtension(path, "x3f");
}

bool IsHeic(const std::string& path) {
  return HasExtension(path, "heic");
}

bool checkCreateDir(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) return true;
  if (mkdir(path.c_str(), 0777) == 0 || errno == EEXIST) return true;
  if (errno == ENOENT) return false;
  syslog(LOG_ERR, "%s:%d %s: %s(%d) - mkdir(%s, 0777 ), errno: %d\n", kJobSource, 507, kJobSource,
         "checkCreateDir", 507, path.c_str(), errno);
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
