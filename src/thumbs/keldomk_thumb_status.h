// How much work is outstanding: missing and stale thumbnails of photos, videos to convert, and what
// the work queues already hold. Nothing here changes a queue.
#pragma once

#include <string>

#include "thumbs/keldomk_util.h"

namespace keldo {

/// Asks the index for a photo's own mask.
inline constexpr ThumbSizeMask kMaskFromIndex = -1;

/// Thumbnails of one photo, by what the mask wants.
struct PhotoThumbStatus {
  int missing = 0;  ///< Absent, empty or older than the photo.
  int present = 0;
};

/// Work outstanding in a directory or a tree.
struct ThumbWork {
  int files = 0;       ///< Photos that lack at least one thumbnail.
  int thumbnails = 0;  ///< Thumbnails that they lack.
};

/// Counts a photo's wanted thumbnails. Both counts are 0 when the photo does not exist (silent), or
/// its metadata directory or mask cannot be had (logged). Stale thumbnails are left where they are.
[[nodiscard]] PhotoThumbStatus GetPhotoThumbStatus(const std::string& source_path,
                                                   ThumbSizeMask mask);

/// Counts the work outstanding for the photos directly in a directory. Nothing when it does not
/// exist (silent) or cannot be opened (logged).
[[nodiscard]] ThumbWork GetDirThumbStatus(const std::string& directory);

/// Adds a directory's work to the module's two counters, unless the directory stands in the
/// thumbnail queue or in the list of what is being worked on. Always returns 0, which lets a tree
/// walk go on.
int QueueDirForCounting(const std::string& directory);

/// Resets the module's counters, counts every directory of a tree (by the walk's filter, without
/// leaving the file system) and returns the totals.
[[nodiscard]] ThumbWork GetTreeThumbStatus(const std::string& root);

/// True when a video lacks wanted thumbnails, or must be converted and has no films yet. Stale
/// thumbnails are removed on the way. `path` may be null (false).
[[nodiscard]] bool DoesVideoNeedWork(const char* path);

/// Number of videos in a directory and below that need work and are not queued. Once one file of a
/// directory is found queued, the files after it in that directory are not counted: a queued file
/// means that the rest of its directory is on its way.
[[nodiscard]] int CountVideosInDir(const std::string& directory);

/// Number of videos that a queue file holds and that need work. 0 when it does not exist (silent)
/// or cannot be opened (logged).
[[nodiscard]] int CountQueuedVideos(const std::string& queue_path);

}  // namespace keldo
