// Scans photo libraries: which thumbnails are there, and which are not.
#pragma once

#include <sys/stat.h>

#include <array>
#include <ctime>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "ctl/console.h"
#include "thumbs/thumb_kinds.h"

namespace keldo::ctl {

/// The state of one thumbnail of a photo.
enum class ThumbState {
  kUnwanted,  ///< The index or the profile file does not ask for this kind.
  kPresent,
  kMissing,
  kStale,   ///< Empty, or older than its photo.
  kFailed,  ///< Not there, and a marker says that rendering this photo failed.
};

inline constexpr std::array<ThumbState, 4> kCountedStates = {
    ThumbState::kPresent, ThumbState::kMissing, ThumbState::kStale, ThumbState::kFailed};

/// True when a photo or its permissions changed after the marker was left: what failed then may
/// succeed now. Compares change times, which only the file system sets.
[[nodiscard]] bool IsMarkerOutdated(const struct stat& photo, const struct stat& marker);

/// One photo and its thumbnails.
struct PhotoState {
  std::string name;
  std::array<ThumbState, kThumbKindTable.size()> thumbs{};  ///< By ThumbKind.
  time_t changed = 0;    ///< The photo's modification time, in seconds since 1970.
  off_t bytes = 0;       ///< The photo's size.
  time_t failed_at = 0;  ///< When the newest failure marker was left, in seconds since 1970.

  /// The number of thumbnails in this state.
  [[nodiscard]] int Count(ThumbState state) const;
  /// True when a thumbnail could not be made.
  [[nodiscard]] bool IsFailed() const { return Count(ThumbState::kFailed) > 0; }
  /// True when a thumbnail is missing or stale, and none has failed.
  [[nodiscard]] bool IsUnfinished() const;
};

/// A directory's photos, in byte order of their names.
struct DirectoryState {
  std::string path;
  std::vector<PhotoState> photos;
  int error = 0;  ///< An errno value when not everything could be read.

  /// True when certainly nothing is left to do: everything could be read, and every photo has its
  /// thumbnails or has failed.
  [[nodiscard]] bool IsFinished() const;
};

/// The photo's path.
[[nodiscard]] std::string PathOf(const DirectoryState& directory, const PhotoState& photo);

/// The numbers of photos and thumbnails.
struct LibraryCounts {
  int photos = 0;
  int failed_photos = 0;
  int unfinished_photos = 0;
  /// Thumbnails by kind and state.
  std::array<std::array<int, 5>, kThumbKindTable.size()> thumbs{};

  void Add(const PhotoState& photo);
  void Add(const LibraryCounts& other);
  /// Thumbnails of all kinds in a state, and those of one kind.
  [[nodiscard]] int Thumbs(ThumbState state) const;
  [[nodiscard]] int Thumbs(ThumbKind kind, ThumbState state) const;
};

[[nodiscard]] LibraryCounts CountsOf(const DirectoryState& directory);

/// Scans directories. Changes nothing and starts nothing.
class PhotoScanner {
 public:
  /// Wants the kinds that both the index and the profile file ask for; without a profile file, all
  /// that the index asks for.
  explicit PhotoScanner(std::optional<std::string> profile_path = std::nullopt);

  /// The photos directly in `directory`, which has no slash at its end unless it is "/". What
  /// cannot be read is logged and left out, and `error` is set.
  [[nodiscard]] DirectoryState Scan(const std::string& directory);

  /// The kinds wanted in a directory.
  [[nodiscard]] ThumbSizeMask WantedKinds(const std::string& directory);

 private:
  std::optional<std::string> profile_path_;
  /// For a mask of the index, the kinds that the profile file asks for too.
  std::map<ThumbSizeMask, ThumbSizeMask> wanted_of_mask_;
};

/// True when this profile file can be read and has at least one thumbnail.
[[nodiscard]] bool IsUsableProfile(const std::string& profile_path);

/// Scans the directories of all trees, each once even if trees overlap, and calls `visit` for those
/// with photos, in order. Reports on the console what cannot be read, and roots whose file system
/// gets no thumbnails. True when everything could be read.
bool ScanLibrary(const std::vector<std::string>& roots, PhotoScanner& scanner, Console& console,
                 const std::function<void(DirectoryState)>& visit);

}  // namespace keldo::ctl
