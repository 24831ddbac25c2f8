#include "run/phase_state.h"

#include <sys/stat.h>

namespace keldo {
namespace {

constexpr off_t kLeastThumbnailBytes = 2;

bool IsPhaseStale(const ThumbProfileList& profiles, int phase, const std::string& photo_path,
                  const std::string& ea_dir) {
  struct stat photo {};
  if (stat(photo_path.c_str(), &photo) != 0) return false;
  for (std::size_t i = 0; i < profiles.count(phase); ++i) {
    const std::optional<FoundThumbnail> found = FindThumbnail(*profiles.at(i, phase), ea_dir);
    if (found && photo.st_mtime > found->status.st_mtime) return true;
  }
  return false;
}

bool IsPhaseComplete(const ThumbProfileList& profiles, int phase, const std::string& ea_dir) {
  for (std::size_t i = 0; i < profiles.count(phase); ++i) {
    const std::optional<FoundThumbnail> found = FindThumbnail(*profiles.at(i, phase), ea_dir);
    if (!found || found->status.st_size < kLeastThumbnailBytes) return false;
  }
  return true;
}

}  // namespace

int FirstPhaseDue(const ThumbProfileList& profiles, const std::string& photo_path,
                  const std::string& ea_dir) {
  for (const int phase : {0, 1, 2}) {
    if (IsPhaseStale(profiles, phase, photo_path, ea_dir) ||
        !IsPhaseComplete(profiles, phase, ea_dir)) {
      return phase;
    }
  }
  return kNoPhaseDue;
}

}  // namespace keldo
