// Rendering the thumbnails of one photo: one converter run into temporary files, then a commit by
// rename if the photo did not change meanwhile. Failed thumbnails leave markers.
#pragma once

#include <cstdint>
#include <string>

#include "platform/file.h"
#include "platform/index_ipc.h"
#include "render/convert_command.h"
#include "thumbs/thumb_profile.h"

namespace keldo {

/// Fills the cleared `record` for a photo. False when it cannot be stat'ed (silent).
[[nodiscard]] inline bool StatSource(const std::string& path, KLIBCFileRecord& record) {
  constexpr int kStandardAndPlatformFields = 9;
  record = {};
  return KLIBCFileStat(path.c_str(), kStandardAndPlatformFields, &record) == 0;
}

/// Renders and commits every thumbnail of the list, which is sorted widest first on the way. True
/// when all were committed, also for an empty list. Logs what is wrong with the photo or the
/// commit; a failed converter run is silent and its temporaries stay.
[[nodiscard]] bool CreatePhotoThumbnails(ThumbRequestList& list);

/// Reserves a temporary name for the request and appends a copy of it to the list.
void AddThumbRequest(ThumbRequestList& list, ThumbRequest& request);

/// The first request's photo; empty for an empty list.
[[nodiscard]] std::string FirstSourcePath(const ThumbRequestList& list);

/// A unique name beside `path` with its extension: "/d/a.jpg" gives "/d/KELDOPHOTO.tmp.Ab3dEf.jpg".
/// No file of that name is left. Where none can be made, the name ends in "XXXXXX".
[[nodiscard]] std::string MakeTempPath(const std::string& path);

/// The file beside `path` that holds the photo's ICC profile while it is rendered.
[[nodiscard]] std::string MakeIccPath(const std::string& path);

/// Largest s of 3, 2, 1 for which the photo scaled by 1/2^s still covers the box of `width` x
/// `height` pixels; 0 when none does.
[[nodiscard]] int PrescaleShift(int width, int height, const keldoindexutils::MediaInfo& media);

/// Decodes the JPEG photo at reduced size with djpeg and has the converter work on the result;
/// where that fails, the converter works on the photo itself.
[[nodiscard]] bool ConvertViaDjpeg(ThumbRequestList& list, const keldoindexutils::MediaInfo& media);

/// Moves the rendered files to their names, mode 0644. `old_blocks` (512-byte blocks) and
/// `old_size` (bytes) are the photo's before the rendering; when both differ now, nothing is
/// committed. True when every thumbnail was committed. Logs each failure.
[[nodiscard]] bool CommitThumbnails(const ThumbRequestList& list, const std::string& source_path,
                                    std::int64_t old_blocks, std::int64_t old_size);

/// The order of rendering: greater width first.
[[nodiscard]] bool CompareRequestWidth(const ThumbRequest& a, const ThumbRequest& b);

/// Removes a profile's thumbnail and failure marker in both spellings.
void RemoveThumbFiles(const ThumbProfile& profile, const std::string& ea_dir);

/// Removes a profile's thumbnail and leaves its failure marker instead: an empty file named as the
/// thumbnail with ".fail" for the extension.
void MarkThumbFailed(const ThumbProfile& profile, const std::string& ea_dir);

}  // namespace keldo
