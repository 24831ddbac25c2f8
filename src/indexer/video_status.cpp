// Which videos need work.
#include <dirent.h>
#include <sys/stat.h>
#include <syslog.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "indexer/indexer.h"
#include "platform/ea_dir.h"
#include "platform/file.h"
#include "platform/file_types.h"
#include "platform/index_ipc.h"
#include "thumbs/directories.h"
#include "thumbs/paths.h"
#include "thumbs/thumb_state.h"
#include "thumbs/work_queue.h"
#include "util/files.h"
#include "util/handles.h"
#include "util/path.h"
#include "util/text.h"

namespace keldo {
namespace {

constexpr const char* kStatusSource = "keldomk_thumb_status";
constexpr const char* kKindSource = "keldomk_util";
// The metadata directory and the longest name in it must still fit into a path buffer.
constexpr std::size_t kLongestVideoPath = 4066;
constexpr std::size_t kQueueLineLimit = 4096;
constexpr int kVideoDatabase = 1;
// A H.264 film from this bit rate on is too heavy for the players it is meant for: such a video is
// converted again.
constexpr int kHighestFilmBitrate = 4499999;

bool IsVideoQueued(const std::string& path) {
  return IsInQueue(path, paths::kFlvQueue, paths::kFlvQueueInWork);
}

// Identities of the directories that a count is inside of. A link to one of them would be counted
// again and again, until the path is too long for the kernel.
using Ancestors = std::vector<std::pair<dev_t, ino_t>>;

int CountVideosBelow(const std::string& directory, Ancestors& ancestors);

int CountVideosOfStream(DIR* stream, const std::string& directory, Ancestors& ancestors) {
  int count = 0;
  bool queued = false;
  while (const dirent* entry = readdir(stream)) {
    if (!IsDirNameAccepted(entry->d_name)) continue;
    const std::string path = CutToPathBuffer(JoinPath(directory, entry->d_name));
    if (keldoindexutils::stat::DoesDirExist(path)) {
      count += CountVideosBelow(path, ancestors);
    } else if (DoesVideoNeedWork(path.c_str())) {
      if (IsVideoQueued(path)) {
        queued = true;
      } else if (!queued) {
        ++count;
      }
    }
  }
  return count;
}

int CountVideosBelow(const std::string& directory, Ancestors& ancestors) {
  struct stat status {};
  if (stat(directory.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
    syslog(LOG_ERR, "%s:%d [Error] dir doesn't exist: %s", kStatusSource, 331, directory.c_str());
    return 0;
  }
  const std::pair identity(status.st_dev, status.st_ino);
  if (std::find(ancestors.begin(), ancestors.end(), identity) != ancestors.end()) return 0;
  const UniqueDir stream(opendir(directory.c_str()));
  if (!stream) {
    syslog(LOG_ERR, "%s:%d [Error] opendir: %s", kStatusSource, 337, directory.c_str());
    return 0;
  }
  ancestors.push_back(identity);
  const int count = CountVideosOfStream(stream.get(), directory, ancestors);
  ancestors.pop_back();
  return count;
}

int CountQueueLine(const std::string& line) {
  const QueueEntry entry = ParseQueueLine(line);
  if (entry.is_tree) return CountVideosInDir(entry.PathUpToColon().value_or(""));
  return DoesVideoNeedWork(line.c_str()) ? 1 : 0;
}

const std::vector<std::string>& FilmNames() {
  static const std::vector<std::string> names = {
      "KELDOPHOTO_FILM_H.mp4",        "KELDOPHOTO:FILM_H.mp4",      "KELDOPHOTO_FILM_M.mp4",
      "KELDOPHOTO:FILM_M.mp4",        "KELDOPHOTO_FILM_L.mp4",      "KELDOPHOTO:FILM_L.mp4",
      "KELDOPHOTO_FILM_MOBILE.mp4",   "KELDOPHOTO:FILM_MOBILE.mp4", "KELDOPHOTO_FILM_MOBILE_IPHONE",
      "KELDOPHOTO:FILM_MOBILE_IPHONE"};
  return names;
}

bool IsH264FilmLightEnough(const std::string& source_path) {
  keldoindexutils::MediaInfo media;
  if (GetMediaFromPluginDb(kVideoDatabase, source_path, media) != 0) {
    syslog(LOG_ERR, "%s:%d fail to get media from plugin db: %s", kKindSource, 143,
           source_path.c_str());
    return false;
  }
  return media.frame_bitrate() <= kHighestFilmBitrate;
}

}  // namespace

bool DoesVideoNeedWork(const char* path) {
  if (path == nullptr || !keldoindexutils::stat::DoesFileExist(path) ||
      !keldoindexutils::DoesVideoOnWebFile(path)) {
    return false;
  }
  if (std::strlen(path) > kLongestVideoPath) {
    syslog(LOG_ERR, "%s:%d [Error] path is too long and can't create thumbnail: %s", kStatusSource,
           295, path);
    return false;
  }
  ThumbSizeMask mask = 0;
  if (keldoindexutils::ipc::KELDOIDX_GetThumbSizeMap(path, THUMB_TYPE_VIDEO, &mask) < 0) {
    syslog(LOG_ERR, "%s:%d [Error] get thumb size map: %s", kStatusSource, 301, path);
    return false;
  }
  if (mask > 0 && !AreWantedThumbnailsPresent(path, mask)) return true;
  if (keldoindexutils::ipc::KELDOIDX_IsVideoNeedConvert(path) != 1) return false;
  return HasConvertedFilms(path) == 0;
}

int CountVideosInDir(const std::string& directory) {
  Ancestors ancestors;
  return CountVideosBelow(directory, ancestors);
}

int CountQueuedVideos(const std::string& queue_path) {
  if (!keldoindexutils::stat::DoesFileExist(queue_path)) return 0;
  const UniqueFile file(std::fopen(queue_path.c_str(), "re"));
  if (!file) {
    syslog(LOG_ERR, "%s:%d [Error] fopen: %s", kStatusSource, 414, queue_path.c_str());
    return 0;
  }
  // Only the main queue has a twin with the videos that are being converted right now.
  const bool has_twin = queue_path == paths::kFlvQueue;
  std::string content;
  // What could be read before a failure counts.
  static_cast<void>(ReadToEnd(fileno(file.get()), content));
  int count = 0;
  for (std::string_view rest = content; !rest.empty();) {
    const std::size_t rest_with_line = rest.size();
    const std::string line(TakeLine(rest));
    if (rest_with_line - rest.size() >= kQueueLineLimit) continue;
    if (has_twin && IsQueueLine(line, paths::kFlvQueueInWork)) continue;
    count += CountQueueLine(line);
  }
  return count;
}

bool AreWantedThumbnailsPresent(const char* source_path, ThumbSizeMask mask) {
  if (source_path == nullptr) {
    syslog(LOG_ERR, "%s:%d Bad parameters.", kKindSource, 232);
    return false;
  }
  std::string directory;
  if (!GetMetadataDir(source_path, 238, directory)) return false;

  bool all_present = true;
  for (const ThumbKindInfo& kind : kThumbKindTable) {
    if (!Wants(mask, kind.kind)) continue;
    const std::string found =
        GetFileNameEAFileExist(directory, kind.underscore_name, kind.colon_name);
    if (found.empty()) {
      all_present = false;
    } else if (NeedsThumbnail(source_path, found)) {
      RemoveEAFile(directory, kind.underscore_name, kind.colon_name);
      all_present = false;
    }
  }
  return all_present;
}

int HasConvertedFilms(const char* source_path) {
  if (source_path == nullptr) {
    syslog(LOG_ERR, "%s:%d Bad parameters.", kKindSource, 189);
    return -1;
  }
  std::string directory;
  if (!GetMetadataDir(source_path, 194, directory)) return 0;
  if (IsEAFileExist(directory, FilmNames())) return 1;
  if (IsEAFileExist(directory, {"KELDOPHOTO_FILM.flv", "KELDOPHOTO:FILM.flv"})) return 1;
  if (IsEAFileExist(directory, {"KELDOPHOTO_FILM_H264.mp4", "KELDOPHOTO:FILM_H264.mp4"})) {
    return IsH264FilmLightEnough(source_path) ? 1 : 0;
  }
  return 0;
}

}  // namespace keldo
