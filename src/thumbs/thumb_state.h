// Which thumbnails are up to date: every rule, with its threshold. They differ in one point.
//
// A thumbnail is stale when its photo was changed in a later second, or when it is empty. That is
// what counts for the status of a photo and for IsThumbUpToDate: other programs made some of these
// files, and theirs may be tiny. Where a thumbnail is about to be rendered, a file below
// kLeastThumbnailBytes is not one either. It is the stub of a broken writer, which would be shown
// forever, since it is neither empty nor old.
#pragma once

#include <sys/stat.h>

#include <string>

#include "thumbs/thumb_kinds.h"
#include "thumbs/thumb_profile.h"

namespace keldo {

inline constexpr off_t kLeastThumbnailBytes = 2;

// ---- By status. Silent. ----

/// True when a thumbnail with this status does not show its source any more: it is empty, or older
/// than the source by at least a second.
[[nodiscard]] bool IsThumbnailOutdated(const struct stat& source, const struct stat& thumbnail);

/// True when a file with this status is too small to be a thumbnail.
[[nodiscard]] bool IsStub(const struct stat& thumbnail);

// ---- By profile, in the metadata directory of a photo. Silent. ----

/// True when the profile's thumbnail is found and not outdated, and the source can be stat'ed.
[[nodiscard]] bool IsThumbUpToDate(const ThumbProfile& profile, const std::string& source_path,
                                   const std::string& ea_dir);

/// True when a request leaves the profile's thumbnail as it is: it is up to date and no stub.
[[nodiscard]] bool NeedsNoRendering(const ThumbProfile& profile, const std::string& source_path,
                                    const std::string& ea_dir);

/// No phase is due: all thumbnails are there and current.
inline constexpr int kNoPhaseDue = -1;

/// The first of the phases 0, 1 and 2 that is due for a photo, or kNoPhaseDue. A phase is due when
/// one of its thumbnails is missing, a stub, or older than the photo. Where the photo is gone, none
/// is older.
[[nodiscard]] int FirstPhaseDue(const ThumbProfileList& profiles, const std::string& photo_path,
                                const std::string& ea_dir);

// ---- By kind. Log on failure. ----

/// Asks the index for a photo's own mask.
inline constexpr ThumbSizeMask kMaskFromIndex = -1;

/// Thumbnails of one photo, by what the mask wants.
struct PhotoThumbStatus {
  int missing = 0;  ///< Absent, empty or older than the photo.
  int present = 0;
};

/// Counts a photo's wanted thumbnails. Both counts are 0 when the photo does not exist (silent), or
/// its metadata directory or mask cannot be had (logged). Stale thumbnails are left where they are.
[[nodiscard]] PhotoThumbStatus GetPhotoThumbStatus(const std::string& source_path,
                                                   ThumbSizeMask mask);

/// True when the thumbnail `file_name` of `source_path` must be made: it is absent or outdated.
/// False, and logged, when the source or its metadata directory cannot be found.
[[nodiscard]] bool NeedsThumbnail(const std::string& source_path, const std::string& file_name);

/// Writes the metadata directory of `source_path` to `directory`. False, and logged under
/// "keldomk_util" and `log_line`, when there is none.
[[nodiscard]] bool GetMetadataDir(const std::string& source_path, int log_line,
                                  std::string& directory);

}  // namespace keldo
