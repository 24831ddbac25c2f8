#include "render/thumb_requests.h"

#include "platform/file.h"
#include "render/keldomk_photo_thumb.h"
#include "thumbs/dir_helpers.h"
#include "thumbs/index.h"

namespace keldo {
namespace {

constexpr off_t kLeastThumbnailBytes = 2;

// Up to date and more than the single byte that a broken writer leaves: such a stub would be shown
// for ever, since it is neither empty nor old.
bool CanBeSkipped(const ThumbProfile& profile, const std::string& path, const std::string& eaDir) {
  if (!IsThumbUpToDate(profile, path, eaDir)) return false;
  const std::optional<FoundThumbnail> found = FindThumbnail(profile, eaDir);
  return found && found->status.st_size >= kLeastThumbnailBytes;
}

void FillFromProfile(ThumbRequest& request, const ThumbProfile& profile, const std::string& path) {
  request.sourcePath = path;
  request.width = profile.size();
  request.height = profile.size();
  request.quality = profile.quality();
  request.unsharp = profile.unsharp();
  request.fill = profile.primaryKind();
  request.colorspace = IsHeic(path) ? "YCbCr" : "sRGB";
}

}  // namespace

bool MakePhotoThumbRequests(const ThumbProfileList& profiles, int phase, const std::string& path,
                            const std::string& eaDir, bool autoOrient, int rotate) {
  if (!keldoindexutils::stat::DoesFileExist(path)) return false;
  // Where this fails, so does the rendering, with its own message.
  static_cast<void>(checkCreateDir(eaDir));

  ThumbRequestList list;
  ThumbRequest request;
  for (std::size_t i = 0; i < profiles.count(phase); ++i) {
    const ThumbProfile* profile = profiles.at(i, phase);
    if (profile == nullptr || CanBeSkipped(*profile, path, eaDir)) continue;
    FillFromProfile(request, *profile, path);
    request.destPath = eaDir + "/" + profile->eaFilename();
    request.tempDir = eaDir;
    // The later phases read a thumbnail of ours, which carries nothing else any more.
    request.stripProfiles = phase == 0;
    request.autoOrient = autoOrient;
    request.rotate = rotate;
    AddThumbRequest(list, request);
  }
  if (CreatePhotoThumbnails(list)) return true;
  MarkPhaseFailed(profiles, phase, eaDir);
  return false;
}

bool MakeRotatedThumbRequest(const ThumbProfile& profile, const RotatedThumb& thumb) {
  if (!keldoindexutils::stat::DoesFileExist(thumb.path)) return false;
  ThumbRequest request;
  FillFromProfile(request, profile, thumb.path);
  request.destPath = thumb.dir + "/" + thumb.name;
  request.tempDir = thumb.dir;
  request.rotate = thumb.angle;
  ThumbRequestList list;
  AddThumbRequest(list, request);
  return CreatePhotoThumbnails(list);
}

int MarkPhaseFailed(const ThumbProfileList& profiles, int phase, const std::string& eaDir) {
  const std::size_t count = profiles.count(phase);
  for (std::size_t i = 0; i < count; ++i) {
    const ThumbProfile* profile = profiles.at(i, phase);
    if (profile != nullptr) MarkThumbFailed(*profile, eaDir);
  }
  return static_cast<int>(count);
}

}  // namespace keldo
