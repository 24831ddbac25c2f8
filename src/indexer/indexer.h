// What the indexer's other programs ask: how much work is outstanding, and how far it has come.
// keldothumb and keldothumbctl call nothing of it. No queue is changed here. Everything logs on
// failure.
#pragma once

#include <string>

#include "platform/index_ipc.h"
#include "thumbs/thumb_kinds.h"

namespace keldo {

// ---- Photos ----

/// Work outstanding in a directory or a tree.
struct ThumbWork {
  int files = 0;       ///< Photos that lack at least one thumbnail.
  int thumbnails = 0;  ///< Thumbnails that they lack.
};

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

// ---- Videos ----

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

/// True when every kind wanted by `mask` has a current thumbnail. Stale and empty ones of the
/// wanted kinds are removed on the way, in both spellings, so that they are made again.
/// `source_path` may be null (logged, false).
[[nodiscard]] bool AreWantedThumbnailsPresent(const char* source_path, ThumbSizeMask mask);

/// The film check of a video: non-zero when converted films exist in its metadata directory, or
/// when `source_path` is null (logged, -1). An H.264 film counts only below 4,500,000 bit/s.
[[nodiscard]] int HasConvertedFilms(const char* source_path);

// ---- Requests to the indexer's plug-in daemon; see thumbs/daemon_requests.h ----

/// Tells the daemon that a video's conversion is done.
void PostVideoConvert(const std::string& path);

/// Whether photo conversion is switched on; false on failure.
[[nodiscard]] bool IsPhotoConversionOn();

/// Whether video conversion is switched on; false on failure.
[[nodiscard]] bool IsVideoConversionOn();

/// Fills `media` with the daemon's record of a file; `type` says which kind of record is asked for
/// (1: the video database). Returns 0, or -1 on failure.
[[nodiscard]] int GetMediaFromPluginDb(int type, const std::string& path,
                                       keldoindexutils::MediaInfo& media);

// ---- Other questions ----

/// The box of a kind as text ("640x640"). Null for a number without a kind; a negative one is
/// logged.
[[nodiscard]] const char* BoxOfKind(int kind);

/// True for a path inside the users' home share: "/volume1/homes" and what lies below. Silent.
[[nodiscard]] bool IsHomeSharePath(const std::string& path);

/// Logs four lines with the totals and fractions of photos, thumbnails and videos.
void LogProgressSummary();

}  // namespace keldo
