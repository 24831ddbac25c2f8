// Finds and removes leftover files in the metadata directories of one directory's photos.
#pragma once

#include <sys/stat.h>

#include <string>
#include <vector>

#include "util/handles.h"

namespace keldo::ctl {

/// Files in one photo's metadata directory that nothing needs any more.
struct Leftovers {
  enum class Reason {
    kPhotoGone,    ///< The photo does not exist.
    kTemporary,    ///< Left behind by an interrupted run.
    kStaleMarker,  ///< Older than the photo, or there is a thumbnail by now.
  };

  Reason reason = Reason::kPhotoGone;
  std::string photo;               ///< The photo's name.
  std::vector<std::string> files;  ///< Names, in byte order.
  off_t bytes = 0;
  /// For kPhotoGone: there are files that are not ours, so the directory has to stay.
  bool has_others = false;
};

/// What was removed, and why anything was not.
struct Removal {
  std::vector<std::string> files;
  off_t bytes = 0;
  bool directory = false;  ///< The photo's metadata directory was removed, too.
  std::string problem;
};

/// Works on one directory and holds its lock, so that no thumbnails are made there meanwhile.
///
/// Knows our files by their names. Removes only regular files of ours and empty metadata
/// directories. Works on open directories and follows no symbolic links. Silent.
class MetadataCleaner {
 public:
  enum class State {
    kReady,
    kNoMetadata,    ///< There is no "@eaDir".
    kNotDirectory,  ///< "@eaDir" is a symbolic link or a file, so not ours.
    kLocked,        ///< Another program is working there.
    kFailed,        ///< problem() says why.
  };

  explicit MetadataCleaner(const std::string& directory);

  [[nodiscard]] State state() const { return state_; }
  /// Why something could not be read; empty if everything could.
  [[nodiscard]] const std::string& problem() const { return problem_; }

  /// All leftovers, in byte order of the photos' names.
  [[nodiscard]] std::vector<Leftovers> Find();

  /// Removes leftovers that were found, if they are still leftovers: each file is checked again
  /// right before it is removed.
  [[nodiscard]] Removal Remove(const Leftovers& leftovers);

 private:
  enum class Presence { kGone, kPhoto, kOther };

  [[nodiscard]] State OpenMetadata();
  [[nodiscard]] std::vector<std::string> MetadataOfPhotos();
  [[nodiscard]] std::vector<Leftovers> Judge(const std::string& photo);
  [[nodiscard]] Presence LookUp(const std::string& photo, struct stat& status);
  [[nodiscard]] UniqueFd OpenMetadataOf(const std::string& photo);
  [[nodiscard]] bool StillHas(const Leftovers& leftovers, const std::string& name);
  void RemoveDirectoryOf(const std::string& photo, Removal& removal);
  void NoteProblem(const std::string& name);

  UniqueFd directory_;
  UniqueFd metadata_;
  State state_ = State::kFailed;
  std::string problem_;
};

}  // namespace keldo::ctl
