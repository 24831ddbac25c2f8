#include "thumbs/index.h"

#include <strings.h>
#include <syslog.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "platform/ea_dir.h"
#include "platform/file.h"
#include "platform/text.h"

namespace keldo {
namespace {

constexpr int kUnknownFileSystem = -1;
// Rejected besides the two classes: it looks local, but metadata directories do not belong on it.
constexpr int kUnsuitableFileSystem = 12;

// The type code of the file system of `path`; a failure is logged under the caller's line value.
int FileSystemType(const std::string& path, int log_line) {
  const int type = KELDOGetFSType(path.c_str(), 0);
  if (type == kUnknownFileSystem) {
    syslog(LOG_DEBUG, "%s:%d failed to statfs %s, reason=[(%d)%s]", "index", log_line, path.c_str(),
           errno, std::strerror(errno));
  }
  return type;
}

bool HasExtension(const std::string& path, const char* extension) {
  return strcasecmp(keldoindexutils::GetFileExtension(path).c_str(), extension) == 0;
}

std::vector<std::string> SplitOnSlash(const std::string& path) {
  std::vector<std::string> parts;
  std::size_t begin = 0;
  for (std::size_t slash = path.find('/'); slash != std::string::npos;
       slash = path.find('/', begin)) {
    parts.push_back(path.substr(begin, slash - begin));
    begin = slash + 1;
  }
  parts.push_back(path.substr(begin));
  return parts;
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

bool IsHomeSharePath(const std::string& path) {
  const std::vector<std::string> parts = SplitOnSlash(path);
  return parts.size() >= 3 && keldoindexutils::StartWith(parts[1], "volume") && parts[2] == "homes";
}

bool IsX3f(const std::string& path) {
  return HasExtension(path, "x3f");
}

bool IsHeic(const std::string& path) {
  return HasExtension(path, "heic");
}

}  // namespace keldo
