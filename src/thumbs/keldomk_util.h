// The six thumbnail kinds, their file names, and which of a file's thumbnails are current.
//
// A thumbnail lies in the metadata directory of its source ("/v/a.jpg" has "/v/@eaDir/a.jpg/"). Its
// name has two spellings: the underscore form is written, and either form counts as present.
#pragma once

#include <sys/stat.h>

#include <array>
#include <string>

namespace keldo {

/// A thumbnail kind; the value is also the kind's bit in a ThumbSizeMask. The numbers are not in
/// the order of size: the index stores masks with them.
enum ThumbKind : int {
  THUMB_S = 0,
  THUMB_M = 1,
  THUMB_B = 2,
  THUMB_L = 3,
  THUMB_XL = 4,
  THUMB_SM = 5,
};

/// Bit k set: thumbnails of kind k are wanted.
using ThumbSizeMask = int;

/// One row of the kind table.
struct ThumbKindInfo {
  int kind;
  const char* box;  ///< Largest width and height in pixels, as "640x640".
  const char* underscore_name;
  const char* colon_name;
};

/// All kinds, in the order of their numbers.
extern const std::array<ThumbKindInfo, 6> kThumbKindTable;

/// The box of a kind as text ("640x640"). Null for a number that is no kind; a negative one is
/// logged.
[[nodiscard]] const char* BoxOfKind(int kind);

/// True when `file_name`, in either spelling, names a kind whose bit is set in `mask`. An unknown
/// name is logged and not wanted.
[[nodiscard]] bool IsKindWanted(const std::string& file_name, ThumbSizeMask mask);

/// True when a thumbnail with this status does not show its source any more: it is empty, or older
/// than the source by at least a second.
[[nodiscard]] bool IsThumbnailOutdated(const struct stat& source, const struct stat& thumbnail);

/// True when the thumbnail `file_name` of `source_path` must be made: it is absent, empty or older
/// than its source. False, and logged, when the source or its metadata directory cannot be found.
[[nodiscard]] bool NeedsThumbnail(const std::string& source_path, const std::string& file_name);

/// True when every kind wanted by `mask` has a current thumbnail. Stale and empty ones of the
/// wanted kinds are removed on the way, in both spellings, so that they are made again.
/// `source_path` may be null (logged, false).
[[nodiscard]] bool AreWantedThumbnailsPresent(const char* source_path, ThumbSizeMask mask);

/// The film check of a video: non-zero when converted films exist in its metadata directory, or
/// when `source_path` is null (logged, -1). An H.264 film counts only below 4,500,000 bit/s.
[[nodiscard]] int HasConvertedFilms(const char* source_path);

/// Writes the metadata directory of `source_path` to `directory`. False, and logged under
/// "keldomk_util" and `log_line`, when there is none.
[[nodiscard]] bool GetMetadataDir(const std::string& source_path, int log_line,
                                  std::string& directory);

}  // namespace keldo
