#include "thumbs/keldomk_thumb_status.h"

#include <ftw.h>
#include <syslog.h>
#include <unistd.h>

#include <array>

#include "platform/ea_dir.h"
#include "platform/file.h"
#include "platform/file_types.h"
#include "platform/index_ipc.h"
#include "thumbs/index.h"
#include "thumbs/paths.h"
#include "thumbs/work_queue.h"
#include "util/handles.h"
#include "util/path.h"

namespace keldo {
namespace {

constexpr int kWalkDescriptors = 100;
constexpr std::size_t kPathBufferSize = 4096;

// What a tree's directories add up to. nftw hands its callback no argument, so the totals of a walk
// have nowhere else to live.
ThumbWork work_to_do;  // NOLINT(cppcoreguidelines-avoid-non-const-global-variables)

int CountWalkedDir(const char* path, const struct stat* /*status*/, int type,
                   struct FTW* position) {
  if (type != FTW_D || !IsDirNameAccepted(path + position->base)) return FTW_SKIP_SUBTREE;
  return QueueDirForCounting(path);
}

}  // namespace

PhotoThumbStatus GetPhotoThumbStatus(const std::string& source_path, ThumbSizeMask mask) {
  PhotoThumbStatus status;
  if (!keldoindexutils::stat::DoesFileExist(source_path)) return status;

  std::array<char, kPathBufferSize> directory{};
  if (KELDOEADirPath(source_path.c_str(), directory.data(), directory.size()) != 0) {
    syslog(LOG_ERR, "%s:%d [Error] get eadir: %s", "keldomk_thumb_status", 92, source_path.c_str());
    return status;
  }
  if (mask == kMaskFromIndex && keldoindexutils::ipc::KELDOIDX_GetThumbSizeMap(
                                    source_path.c_str(), THUMB_TYPE_PHOTO, &mask) < 0) {
    syslog(LOG_ERR, "%s:%d [Error] get thumb size map: %s", "keldomk_thumb_status", 99,
           source_path.c_str());
    return status;
  }
  for (const ThumbKindInfo& kind : kThumbKindTable) {
    if (!IsKindWanted(kind.underscore_name, mask)) continue;
    const std::string found =
        GetFileNameEAFileExist(directory.data(), kind.underscore_name, kind.colon_name);
    if (found.empty() || NeedsThumbnail(source_path, found)) {
      ++status.missing;
    } else {
      ++status.present;
    }
  }
  return status;
}

ThumbWork GetDirThumbStatus(const std::string& directory) {
  ThumbWork work;
  if (!keldoindexutils::stat::DoesDirExist(directory)) return work;
  const UniqueDir stream(opendir(directory.c_str()));
  if (!stream) {
    syslog(LOG_ERR, "%s:%d [Error] opendir: %s", "keldomk_thumb_status", 154, directory.c_str());
    return work;
  }
  ThumbSizeMask mask = 0;
  if (keldoindexutils::ipc::KELDOIDX_GetDirThumbSizeMap(directory.c_str(), THUMB_TYPE_PHOTO,
                                                        &mask) < 0) {
    mask = kMaskFromIndex;
  }
  while (const dirent* entry = readdir(stream.get())) {
    if (!IsDirNameAccepted(entry->d_name)) continue;
    const std::string path = CutToPathBuffer(JoinPath(directory, entry->d_name));
    if (!keldoindexutils::DoesPhotoOnWebConvertFile(path)) continue;
    const PhotoThumbStatus status = GetPhotoThumbStatus(path, mask);
    if (status.missing >= 1) {
      ++work.files;
      work.thumbnails += status.missing;
    }
  }
  return work;
}

int QueueDirForCounting(const std::string& directory) {
  if (IsInQueue(directory, paths::kThumbQueue, paths::kThumbQueueInWork)) return 0;
  const ThumbWork work = GetDirThumbStatus(directory);
  work_to_do.files += work.files;
  work_to_do.thumbnails += work.thumbnails;
  return 0;
}

ThumbWork GetTreeThumbStatus(const std::string& root) {
  work_to_do = {};
  nftw(root.c_str(), CountWalkedDir, kWalkDescriptors, FTW_MOUNT | FTW_ACTIONRETVAL);
  return work_to_do;
}

}  // namespace keldo
