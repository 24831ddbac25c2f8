#include "photo/dir_photos.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>

#include <algorithm>
#include <utility>

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

// The status of a directory's entry; false, and logged, when it is gone or cannot be reached.
bool GetStatus(DIR* directory, const std::string& path, DirPhoto& photo) {
  // Below the open directory, so that its own path is not looked up for each photo.
  if (fstatat(dirfd(directory), photo.name.c_str(), &photo.status, 0) == 0) return true;
  syslog(LOG_ERR, "%s:%d [Error] stat: %s", "keldothumb", kStatFailedLine,
         JoinPath(path, photo.name).c_str());
  return false;
}

}  // namespace

std::vector<DirPhoto> ListDirPhotosWithStatus(const std::string& dirPath) {
  std::vector<DirPhoto> photos;
  const UniqueDir stream(opendir(dirPath.c_str()));
  if (!stream) {
    syslog(LOG_ERR, "%s:%d [Error] opendir: %s", "keldothumb", kOpenFailedLine, dirPath.c_str());
    return photos;
  }
  while (const dirent* entry = readdir(stream.get())) {
    // The name decides before the file is looked up: most entries of most directories cost nothing.
    DirPhoto photo{entry->d_name, {}};
    if (!IsPhotoName(photo.name)) continue;
    if (!GetStatus(stream.get(), dirPath, photo)) continue;
    if (S_ISREG(photo.status.st_mode)) photos.push_back(std::move(photo));
  }
  // std::string compares as memcmp does, so that the order is that of the bytes.
  std::sort(photos.begin(), photos.end(),
            [](const DirPhoto& a, const DirPhoto& b) { return a.name < b.name; });
  return photos;
}

std::vector<std::string> ListDirPhotos(const std::string& dirPath) {
  std::vector<std::string> names;
  for (DirPhoto& photo : ListDirPhotosWithStatus(dirPath))
    names.push_back(std::move(photo.name));
  return names;
}

}  // namespace keldo
