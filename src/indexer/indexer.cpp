#include "indexer/indexer.h"

#include <syslog.h>

#include <vector>

#include "platform/file.h"
#include "platform/file_types.h"
#include "platform/index_ipc.h"
#include "platform/text.h"
#include "thumbs/daemon_requests.h"
#include "thumbs/directories.h"
#include "thumbs/paths.h"
#include "thumbs/progress.h"
#include "thumbs/thumb_state.h"
#include "thumbs/tree_walk.h"
#include "thumbs/work_queue.h"
#include "util/handles.h"
#include "util/path.h"

namespace keldo {
namespace {

constexpr const char* kStatusSource = "keldomk_thumb_status";
constexpr const char* kKindSource = "keldomk_util";
constexpr const char* kProgressSource = "keldomk_progress";

// What the directories counted since the last tree add up to. It outlives a call, since
// QueueDirForCounting may be called on its own.
ThumbWork work_to_do;  // NOLINT(cppcoreguidelines-avoid-non-const-global-variables)

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

bool AskSwitch(const char* command, int failure_line) {
  Json::Value packet = DaemonRequest(command);
  if (!AskDaemon(packet, failure_line)) return false;
  return IsReadable(packet, "result", Json::booleanValue) && packet["result"].asBool();
}

struct Progress {
  int total = 0;
  int completed = 0;
  float fraction = 0.0F;
};

Progress ReadPair(int kind, const char* total_key, const char* completed_key) {
  Progress progress;
  progress.total = ReadProgress(kind, total_key);
  progress.completed = ReadProgress(kind, completed_key);
  if (progress.total != 0) {
    progress.fraction = static_cast<float>(progress.completed) / static_cast<float>(progress.total);
  }
  return progress;
}

}  // namespace

ThumbWork GetDirThumbStatus(const std::string& directory) {
  ThumbWork work;
  if (!keldoindexutils::stat::DoesDirExist(directory)) return work;
  const UniqueDir stream(opendir(directory.c_str()));
  if (!stream) {
    syslog(LOG_ERR, "%s:%d [Error] opendir: %s", kStatusSource, 154, directory.c_str());
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
  WalkAccepted(root, [](const char* directory) { QueueDirForCounting(directory); });
  return work_to_do;
}

void PostVideoConvert(const std::string& path) {
  Json::Value packet = DaemonRequest("POST_VIDEO_CONVERT", path);
  static_cast<void>(AskDaemon(packet, 159));
}

bool IsPhotoConversionOn() {
  return AskSwitch("IS_CONVERT_PHOTO", 112);
}

bool IsVideoConversionOn() {
  return AskSwitch("IS_CONVERT_VIDEO", 85);
}

int GetMediaFromPluginDb(int type, const std::string& path, keldoindexutils::MediaInfo& media) {
  Json::Value packet = DaemonRequest("GET_MEDIA_FROM_PLUGIN_DB", path);
  packet["type"] = type;
  if (!AskDaemon(packet, 32)) return -1;
  media.SetByJson(packet["media"]);
  return 0;
}

const char* BoxOfKind(int kind) {
  if (kind < 0) {
    syslog(LOG_ERR, "%s:%d Bad parameters.", kKindSource, 52);
    return nullptr;
  }
  const auto row = static_cast<std::size_t>(kind);
  return row < kThumbKindTable.size() ? kThumbKindTable[row].box : nullptr;
}

bool IsHomeSharePath(const std::string& path) {
  const std::vector<std::string> parts = SplitOnSlash(path);
  return parts.size() >= 3 && keldoindexutils::StartWith(parts[1], "volume") && parts[2] == "homes";
}

void LogProgressSummary() {
  const Progress photo = ReadPair(kPhotoProgress, "total", kCompletedKey);
  const Progress thumb = ReadPair(kPhotoProgress, "total_thumb", kCompletedThumbKey);
  const Progress video = ReadPair(kVideoProgress, "total", kCompletedKey);
  syslog(LOG_ERR, "%s:%d ========== Convert Progress ==========", kProgressSource, 146);
  syslog(LOG_ERR, "%s:%d total_photo: %d, complete_photo: %d, progress: %.2f", kProgressSource, 147,
         photo.total, photo.completed, static_cast<double>(photo.fraction));
  syslog(LOG_ERR, "%s:%d total_thumb: %d, complete_thumb: %d, progress: %.2f", kProgressSource, 148,
         thumb.total, thumb.completed, static_cast<double>(thumb.fraction));
  syslog(LOG_ERR, "%s:%d total_video: %d, complete_video: %d, progress: %.2f", kProgressSource, 149,
         video.total, video.completed, static_cast<double>(video.fraction));
}

}  // namespace keldo
