#include "photo/dir_photos.h"

#include <sys/stat.h>
#include <syslog.h>

#include <algorithm>

#include "base/handles.h"
#include "base/path.h"
#include "platform/file_types.h"
#include "platform/text.h"

namespace keldo {
namespace {

// Line values of this listing's two messages.
constexpr int kOpenFailedLine = 703;
constexpr int kStatFailedLine = 716;

bool IsPhotoName(const std::string& name) {
  if (name == "." || name == ".." || keldoindexutils::StartWith(name, "._")) return false;
  return keldoindexutils::DoesPhotoOnWebConvertFile(name);
}

bool IsRegularFile(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    syslog(LOG_ERR, "%s:%d [Error] stat: %s", "keldothumb", kStatFailedLine, path.c_str());
    return false;
  }
  return S_ISREG(status.st_mode);
}

}  // namespace

std::vector<std::string> ListDirPhotos(const std::string& dirPath) {
  std::vector<std::string> names;
  const UniqueDir stream(opendir(dirPath.c_str()));
  if (!stream) {
    syslog(LOG_ERR, "%s:%d [Error] opendir: %s", "keldothumb", kOpenFailedLine, dirPath.c_str());
    return names;
  }
  while (const dirent* entry = readdir(stream.get())) {
    // The name decides before the file is looked up: most entries of most directories cost nothing.
    const std::string name = entry->d_name;
    if (IsPhotoName(name) && IsRegularFile(JoinPath(dirPath, name))) names.push_back(name);
  }
  // std::string compares as memcmp does, so that the order is that of the bytes.
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace keldo
