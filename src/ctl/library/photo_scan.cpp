#include "ctl/library/photo_scan.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <numeric>
#include <set>
#include <string_view>
#include <utility>

#include "platform/conf_parser.h"
#include "platform/index_ipc.h"
#include "render/dir_photos.h"
#include "thumbs/directories.h"
#include "thumbs/metadata_names.h"
#include "thumbs/thumb_profile.h"
#include "thumbs/thumb_state.h"
#include "thumbs/tree_walk.h"
#include "util/handles.h"
#include "util/path.h"

namespace keldo::ctl {
namespace {

// Looks a photo's files up below the directory's open "@eaDir" (-1 where there is none), by the
// shortest possible paths.
class MetadataOf {
 public:
  MetadataOf(int metadata_fd, const DirPhoto& photo)
      : metadata_fd_(metadata_fd),
        photo_(photo.status),
        path_(photo.name + "/"),
        length_(path_.size()),
        exists_(metadata_fd >= 0) {}

  [[nodiscard]] ThumbState StateOf(const ThumbKindInfo& kind) {
    if (!exists_) return ThumbState::kMissing;
    struct stat thumbnail {};
    const bool found = Find(kind.underscore_name, thumbnail);
    exists_ = known_to_exist_ || Exists();
    if (!exists_) return ThumbState::kMissing;
    if (found || Find(kind.colon_name, thumbnail)) {
      if (!IsThumbnailOutdated(photo_, thumbnail)) return ThumbState::kPresent;
      return IsMarked(kind) ? ThumbState::kFailed : ThumbState::kStale;
    }
    return IsMarked(kind) ? ThumbState::kFailed : ThumbState::kMissing;
  }

  /// The time of the newest marker found; 0 for none.
  [[nodiscard]] time_t failed_at() const { return failed_at_; }

 private:
  bool Find(std::string_view name, struct stat& status) {
    path_.replace(length_, std::string::npos, name);
    if (fstatat(metadata_fd_, path_.c_str(), &status, 0) != 0) return false;
    known_to_exist_ = true;
    return true;
  }

  // Looked up once per photo. Most photos without thumbnails have no metadata directory.
  bool Exists() {
    struct stat status {};
    return Find("", status);
  }

  bool IsMarked(const ThumbKindInfo& kind) {
    struct stat marker {};
    if (!Find(MarkerOf(kind.underscore_name), marker) && !Find(MarkerOf(kind.colon_name), marker)) {
      return false;
    }
    if (IsMarkerOutdated(photo_, marker)) return false;
    failed_at_ = std::max(failed_at_, marker.st_ctim.tv_sec);
    return true;
  }

  int metadata_fd_;
  const struct stat& photo_;
  std::string path_;
  std::size_t length_;
  bool exists_;
  bool known_to_exist_ = false;
  time_t failed_at_ = 0;
};

PhotoState StateOf(const DirPhoto& photo, int metadata_fd, ThumbSizeMask wanted) {
  PhotoState state;
  state.name = photo.name;
  state.changed = photo.status.st_mtime;
  state.bytes = photo.status.st_size;
  MetadataOf metadata(metadata_fd, photo);
  for (const ThumbKindInfo& kind : kThumbKindTable) {
    if (!Wants(wanted, kind.kind)) continue;
    state.thumbs.at(static_cast<std::size_t>(kind.kind)) = metadata.StateOf(kind);
  }
  state.failed_at = metadata.failed_at();
  return state;
}

ThumbSizeMask KindsOf(const ThumbProfileList& profiles) {
  ThumbSizeMask kinds = 0;
  for (std::size_t i = 0; i < profiles.count(PHASE_ALL); ++i) {
    const ThumbKindInfo* kind = FindKind(profiles.at(i, PHASE_ALL)->eaFilename());
    if (kind != nullptr) kinds |= 1 << kind->kind;
  }
  return kinds;
}

}  // namespace

bool IsMarkerOutdated(const struct stat& photo, const struct stat& marker) {
  const timespec changed = photo.st_ctim;
  const timespec marked = marker.st_ctim;
  return changed.tv_sec != marked.tv_sec ? changed.tv_sec > marked.tv_sec
                                         : changed.tv_nsec > marked.tv_nsec;
}

int PhotoState::Count(ThumbState state) const {
  return static_cast<int>(std::count(thumbs.begin(), thumbs.end(), state));
}

bool PhotoState::IsUnfinished() const {
  return !IsFailed() && Count(ThumbState::kMissing) + Count(ThumbState::kStale) > 0;
}

bool DirectoryState::IsFinished() const {
  return error == 0 && std::none_of(photos.begin(), photos.end(),
                                    [](const PhotoState& photo) { return photo.IsUnfinished(); });
}

std::string PathOf(const DirectoryState& directory, const PhotoState& photo) {
  return JoinPath(directory.path == "/" ? "" : directory.path, photo.name);
}

void LibraryCounts::Add(const PhotoState& photo) {
  ++photos;
  if (photo.IsFailed()) ++failed_photos;
  if (photo.IsUnfinished()) ++unfinished_photos;
  for (std::size_t kind = 0; kind < photo.thumbs.size(); ++kind)
    ++thumbs.at(kind).at(static_cast<std::size_t>(photo.thumbs.at(kind)));
}

void LibraryCounts::Add(const LibraryCounts& other) {
  photos += other.photos;
  failed_photos += other.failed_photos;
  unfinished_photos += other.unfinished_photos;
  for (std::size_t kind = 0; kind < thumbs.size(); ++kind) {
    for (std::size_t state = 0; state < thumbs.at(kind).size(); ++state)
      thumbs.at(kind).at(state) += other.thumbs.at(kind).at(state);
  }
}

int LibraryCounts::Thumbs(ThumbState state) const {
  return std::accumulate(thumbs.begin(), thumbs.end(), 0, [state](int sum, const auto& kind) {
    return sum + kind.at(static_cast<std::size_t>(state));
  });
}

int LibraryCounts::Thumbs(ThumbKind kind, ThumbState state) const {
  return thumbs.at(static_cast<std::size_t>(kind)).at(static_cast<std::size_t>(state));
}

LibraryCounts CountsOf(const DirectoryState& directory) {
  LibraryCounts counts;
  for (const PhotoState& photo : directory.photos)
    counts.Add(photo);
  return counts;
}

PhotoScanner::PhotoScanner(std::optional<std::string> profile_path)
    : profile_path_(std::move(profile_path)) {}

DirectoryState PhotoScanner::Scan(const std::string& directory) {
  DirectoryState state{directory, {}};
  const std::vector<DirPhoto> photos = ListDirPhotosWithStatus(directory, &state.error);
  if (photos.empty()) return state;
  const UniqueFd metadata(
      open(JoinPath(directory, kMetadataDirectory).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  const ThumbSizeMask wanted = WantedKinds(directory);
  state.photos.reserve(photos.size());
  for (const DirPhoto& photo : photos)
    state.photos.push_back(StateOf(photo, metadata.get(), wanted));
  return state;
}

ThumbSizeMask PhotoScanner::WantedKinds(const std::string& directory) {
  ThumbSizeMask mask = kAllKinds;
  if (keldoindexutils::ipc::KELDOIDX_GetDirThumbSizeMap(directory.c_str(), THUMB_TYPE_PHOTO,
                                                        &mask) < 0) {
    return 0;
  }
  if (!profile_path_) return mask;
  const auto known = wanted_of_mask_.find(mask);
  if (known != wanted_of_mask_.end()) return known->second;
  ThumbProfileList profiles;
  const ThumbSizeMask wanted =
      profiles.load(*profile_path_, directory) != 0 ? KindsOf(profiles) : 0;
  return wanted_of_mask_[mask] = wanted;
}

bool IsUsableProfile(const std::string& profile_path) {
  KELDOUtils::ConfParser parser;
  return parser.loadFromFile(profile_path.c_str()) != 0 && !parser.enumSections().empty();
}

bool ScanLibrary(const std::vector<std::string>& roots, PhotoScanner& scanner, Console& console,
                 const std::function<void(DirectoryState)>& visit) {
  bool complete = true;
  std::set<std::pair<dev_t, ino_t>> seen;
  // Two roots may lead to one directory by different paths.
  const auto is_new = [&seen](const std::string& directory) {
    struct stat status {};
    return ::stat(directory.c_str(), &status) != 0 ||
           seen.insert({status.st_dev, status.st_ino}).second;
  };
  const TreeVisitor visitor{[&](const std::string& directory) {
                              if (!is_new(directory)) return;
                              DirectoryState state = scanner.Scan(directory);
                              if (state.error != 0) {
                                complete = false;
                                console.Fail(directory, std::strerror(state.error));
                              }
                              if (!state.photos.empty()) visit(std::move(state));
                            },
                            [&](const std::string& directory, int error) {
                              complete = false;
                              console.Fail(directory, std::strerror(error));
                            }};
  for (const std::string& root : roots) {
    if (IsFileSystemRejected(root)) {
      complete = false;
      console.Fail(root, "is on a network share or a disk image, where no thumbnails are made");
      continue;
    }
    WalkDirectories(root, visitor);
  }
  return complete;
}

}  // namespace keldo::ctl
