#include "thumbs/keldomk_progress.h"

#include <syslog.h>

#include <array>
#include <cstdlib>
#include <string>

#include "platform/file.h"
#include "thumbs/paths.h"

namespace keldo {
namespace {

constexpr std::size_t kBufferSize = 4096;
constexpr int kNoFlags = 0;
constexpr int kDecimal = 10;

// The progress file of a kind; null for a kind that has none.
const char* FileOfKind(int kind) {
  if (kind == kPhotoProgress) return paths::kPhotoProgress;
  if (kind == kVideoProgress) return paths::kVideoProgress;
  return nullptr;
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

void AddProgress(int kind, const char* key, int amount) {
  const char* file = FileOfKind(kind);
  if (key == nullptr || file == nullptr) return;
  const std::string sum = std::to_string(static_cast<int>(
      static_cast<unsigned>(ReadProgress(kind, key)) + static_cast<unsigned>(amount)));
  if (KLIBCFileSetKeyValue(file, key, sum.c_str(), kNoFlags) < 0) {
    syslog(LOG_ERR, "%s:%d KLIBCFileSetKeyValue fail: %s", "keldomk_progress", 117, file);
  }
}

int ReadProgress(int kind, const char* key) {
  const char* file = FileOfKind(kind);
  if (key == nullptr || file == nullptr) return 0;
  std::array<char, kBufferSize> value{};
  if (KLIBCFileGetKeyValue(file, key, value.data(), value.size(), kNoFlags) <= 0) return 0;
  return static_cast<int>(std::strtol(value.data(), nullptr, kDecimal));
}

void LogProgressSummary() {
  const Progress photo = ReadPair(kPhotoProgress, "total", kCompletedKey);
  const Progress thumb = ReadPair(kPhotoProgress, "total_thumb", kCompletedThumbKey);
  const Progress video = ReadPair(kVideoProgress, "total", kCompletedKey);
  constexpr const char* kSource = "keldomk_progress";
  syslog(LOG_ERR, "%s:%d ========== Convert Progress ==========", kSource, 146);
  syslog(LOG_ERR, "%s:%d total_photo: %d, complete_photo: %d, progress: %.2f", kSource, 147,
         photo.total, photo.completed, static_cast<double>(photo.fraction));
  syslog(LOG_ERR, "%s:%d total_thumb: %d, complete_thumb: %d, progress: %.2f", kSource, 148,
         thumb.total, thumb.completed, static_cast<double>(thumb.fraction));
  syslog(LOG_ERR, "%s:%d total_video: %d, complete_video: %d, progress: %.2f", kSource, 149,
         video.total, video.completed, static_cast<double>(video.fraction));
}

}  // namespace keldo
