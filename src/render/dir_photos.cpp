#include "render/dir_photos.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "platform/file_types.h"
#include "platform/text.h"
#include "util/handles.h"
#include "util/path.h"

namespace keldo {
namespace {

// Line values of this listing's two messages.
constexpr int kOpenFailedLine = 703;
constexpr const char* kSource = "keldothumb";
constexpr int kStatFailedLine = 716;

bool IsPhotoName(const std::string& name) {
  if (name == "." || name == ".." || keldoindexutils::StartWith(name, "._")) return false;
  return keldoindexutils::DoesPhotoOnWebConvertFile(name);
}

// The status of a directory's entry; false with errno set, and logged, when it is gone or cannot be
// reached.
bool GetStatus(DIR* directory, const std::string& path, DirPhoto& photo) {
  // Below the open directory, so that its own path is not looked up for each photo.
  if (fstatat(dirfd(directory), photo.name.c_str(), &photo.status, 0) == 0) return true;
  const int error = errno;
  syslog(LOG_ERR, "%s:%d [Error] stat: %s", kSource, kStatFailedLine,
         JoinPath(path, photo.name).c_str());
  errno = error;
  return false;
}

// The next entry; null at the end, and with `error` set where the directory cannot be read on.
const dirent* NextEntry(DIR* directory, int& error) {
  errno = 0;
  const dirent* entry = readdir(directory);
  if (entry == nullptr && errno != 0) error = errno;
  return entry;
}

}  // namespace

std::vector<DirPhoto> ListDirPhotosWithStatus(const std::string& directory, int* error) {
  std::vector<DirPhoto> photos;
  int first_error = 0;
  const UniqueDir stream(opendir(directory.c_str()));
  if (!stream) {
    first_error = errno;
    syslog(LOG_ERR, "%s:%d [Error] opendir: %s", kSource, kOpenFailedLine, directory.c_str());
  }
  while (const dirent* entry = stream ? NextEntry(stream.get(), first_error) : nullptr) {
    // The name decides before the file is looked up: most entries of most directories cost nothing.
    DirPhoto photo{entry->d_name, {}};
    if (!IsPhotoName(photo.name)) continue;
    if (!GetStatus(stream.get(), directory, photo)) {
      if (errno != ENOENT && errno != ELOOP) first_error = errno;
    } else if (S_ISREG(photo.status.st_mode)) {
      photos.push_back(std::move(photo));
    }
  }
  // std::string compares as memcmp does, so that the order is that of the bytes.
  std::sort(photos.begin(), photos.end(),
            [](const DirPhoto& a, const DirPhoto& b) { return a.name < b.name; });
  if (error != nullptr) *error = first_error;
  return photos;
}

std::vector<std::string> ListDirPhotos(const std::string& directory) {
  std::vector<std::string> names;
  for (DirPhoto& photo : ListDirPhotosWithStatus(directory))
    names.push_back(std::move(photo.name));
  return names;
}

}  // namespace keldo
