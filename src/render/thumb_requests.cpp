#include "render/thumb_requests.h"

#include "platform/file.h"
#include "render/pipeline.h"
#include "thumbs/directories.h"
#include "thumbs/thumb_state.h"

namespace keldo {
namespace {

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
                            const std::string& ea_dir, bool auto_orient, int rotate) {
  if (!keldoindexutils::stat::DoesFileExist(path)) return false;
  // Where this fails, so does the rendering, with its own message.
  static_cast<void>(checkCreateDir(ea_dir));

  ThumbRequestList list;
  ThumbRequest request;
  for (std::size_t i = 0; i < profiles.count(phase); ++i) {
    const ThumbProfile* profile = profiles.at(i, phase);
    if (profile == nullptr || NeedsNoRendering(*profile, path, ea_dir)) continue;
    FillFromProfile(request, *profile, path);
    request.destPath = ea_dir + "/" + profile->eaFilename();
    request.tempDir = ea_dir;
    // The later phases read one of our own thumbnails, and phase 0 has stripped that.
    request.stripProfiles = phase == 0;
    request.autoOrient = auto_orient;
    request.rotate = rotate;
    AddThumbRequest(list, request);
  }
  if (CreatePhotoThumbnails(list)) return true;
  MarkPhaseFailed(profiles, phase, ea_dir);
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

int MarkPhaseFailed(const ThumbProfileList& profiles, int phase, const std::string& ea_dir) {
  const std::size_t count = profiles.count(phase);
  for (std::size_t i = 0; i < count; ++i) {
    const ThumbProfile* profile = profiles.at(i, phase);
    if (profile != nullptr) MarkThumbFailed(*profile, ea_dir);
  }
  return static_cast<int>(count);
}

}  // namespace keldo
