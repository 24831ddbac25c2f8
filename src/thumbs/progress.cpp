#include "thumbs/progress.h"

#include <syslog.h>

#include <array>
#include <cstdlib>
#include <string>

#include "platform/file.h"
#include "thumbs/paths.h"

namespace keldo {
namespace {

constexpr const char* kSource = "keldomk_progress";
constexpr std::size_t kBufferSize = 4096;
constexpr int kNoFlags = 0;
constexpr int kDecimal = 10;

// The progress file of a kind; null for a kind that has none.
const char* FileOfKind(int kind) {
  if (kind == kPhotoProgress) return paths::kPhotoProgress;
  if (kind == kVideoProgress) return paths::kVideoProgress;
  return nullptr;
}

}  // namespace

void AddProgress(int kind, const char* key, int amount) {
  const char* file = FileOfKind(kind);
  if (key == nullptr || file == nullptr) return;
  const std::string sum = std::to_string(static_cast<int>(
      static_cast<unsigned>(ReadProgress(kind, key)) + static_cast<unsigned>(amount)));
  if (KLIBCFileSetKeyValue(file, key, sum.c_str(), kNoFlags) < 0) {
    syslog(LOG_ERR, "%s:%d KLIBCFileSetKeyValue fail: %s", kSource, 117, file);
  }
}

int ReadProgress(int kind, const char* key) {
  const char* file = FileOfKind(kind);
  if (key == nullptr || file == nullptr) return 0;
  std::array<char, kBufferSize> value{};
  if (KLIBCFileGetKeyValue(file, key, value.data(), value.size(), kNoFlags) <= 0) return 0;
  return static_cast<int>(std::strtol(value.data(), nullptr, kDecimal));
}

}  // namespace keldo
