// The commit: finished thumbnails appear by rename, or not at all.
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <ctime>

#include "render/pipeline.h"
#include "thumbs/thumb_state.h"

namespace keldo {
namespace {

constexpr mode_t kThumbnailMode = 0644;
constexpr const char* kSource = "keldomk_photo_thumb";
constexpr int kSetAccessAndModification = 3;

void DeleteTemporaries(const ThumbRequestList& list) {
  for (const ThumbRequest& request : list)
    unlink(request.tempPath.c_str());
}

// A photo dated in the future gives its thumbnails the same date. Otherwise they would always look
// older than the photo, and every run would render them again.
void CopyFutureTime(const std::string& path, const KLIBCFileRecord& photo) {
  const timespec time{photo.st.st_mtime, 0};
  const timespec platform_words{photo.platform_words[0], photo.platform_words[1]};
  KLIBCFileUTime(path.c_str(), kSetAccessAndModification, {time, time, platform_words});
}

// Moves one thumbnail into place. False when it could not be moved or is too small to be an image.
bool CommitOne(const ThumbRequest& request, const KLIBCFileRecord& photo, time_t now) {
  const char* destination = request.destPath.c_str();
  if (rename(request.tempPath.c_str(), destination) != 0) {
    syslog(LOG_ERR, "%s:%d [Error] rename: %s, %s", kSource, 504, request.tempPath.c_str(),
           destination);
    unlink(request.tempPath.c_str());
    return false;
  }
  if (chmod(destination, kThumbnailMode) != 0) {
    syslog(LOG_ERR, "%s:%d [Error] Failed to chmod [%s], %s", kSource, 511, destination,
           std::strerror(errno));
  }
  struct stat status {};
  if (stat(destination, &status) != 0 || IsStub(status)) {
    unlink(destination);
    syslog(LOG_ERR, "%s:%d [Error] file size of dest path: %d, %s", kSource, 515,
           static_cast<int>(status.st_size), destination);
    return false;
  }
  if (photo.st.st_mtime > now) CopyFutureTime(request.destPath, photo);
  return true;
}

}  // namespace

bool CommitThumbnails(const ThumbRequestList& list, const std::string& source_path,
                      std::int64_t old_blocks, std::int64_t old_size) {
  const time_t now = time(nullptr);
  KLIBCFileRecord photo{};
  if (!StatSource(source_path, photo)) {
    syslog(LOG_ERR, "%s:%d Failed to KLIBCFileStat() path [%s]", kSource, 471, source_path.c_str());
    DeleteTemporaries(list);
    return false;
  }
  // Both must differ: a file system may move blocks around, and a tag may be rewritten in place,
  // while the image stays the same.
  if (photo.st.st_size != old_size && photo.st.st_blocks != old_blocks) {
    syslog(LOG_ERR, "%s:%d [Error] file size changed: st_blocks %d -> %d; st_size %jd -> %jd, %s",
           kSource, 484, static_cast<int>(old_blocks), static_cast<int>(photo.st.st_blocks),
           static_cast<std::intmax_t>(old_size), static_cast<std::intmax_t>(photo.st.st_size),
           source_path.c_str());
    DeleteTemporaries(list);
    return false;
  }
  bool all_committed = true;
  for (const ThumbRequest& request : list) {
    if (!CommitOne(request, photo, now)) all_committed = false;
  }
  return all_committed;
}

}  // namespace keldo
