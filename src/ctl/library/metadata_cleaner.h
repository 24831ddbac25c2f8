// Finds and removes what is left over in the metadata directories of one directory's photos.
#pragma once

#include <sys/stat.h>

#include <string>
#include <vector>

#include "util/handles.h"

namespace keldo::ctl {

/// Files of one photo's metadata directory that serve nobody any more.
struct Leftovers {
  enum class Reason {
    kPhotoGone,    ///< The photo is not there.
    kTemporary,    ///< A run that was interrupted left them behind.
    kStaleMarker,  ///< They tell of a failure that a later thumbnail or photo has made good.
  };

  Reason reason = Reason::kPhotoGone;
  std::string photo;               ///< The photo's name.
  std::vector<std::string> files;  ///< Names, in byte order.
  off_t bytes = 0;
  /// Of a gone photo: files that are not ours lie there too, so the metadata directory has to stay.
  bool has_others = false;
};

/// What was removed, and why not all of it.
struct Removal {
  std::vector<std::string> files;
  off_t bytes = 0;
  bool directory = false;  ///< The photo's metadata directory went too.
  std::string problem;
};

/// Works on one directory, whose lock it holds: no thumbnails are made there meanwhile.
///
/// Knows files by their names and never removes what is not of our making, nor anything but regular
/// files and metadata directories that are empty. Works on open directories and follows no symbolic
/// link. Silent.
class MetadataCleaner {
 public:
  enum class State {
    kReady,
    kNoMetadata,    ///< There is no "@eaDir".
    kNotDirectory,  ///< "@eaDir" is a symbolic link or a file, and none of our business.
    kLocked,        ///< Another program is at work there.
    kFailed,        ///< problem() tells why.
  };

  explicit MetadataCleaner(const std::string& directory);

  [[nodiscard]] State state() const { return state_; }
  /// Why something could not be looked at; empty when all could.
  [[nodiscard]] const std::string& problem() const { return problem_; }

  /// All leftovers, in byte order of the photos' names.
  [[nodiscard]] std::vector<Leftovers> Find();

  /// Removes leftovers that were found, as far as they still are what they were: each file is
  /// judged anew right before it goes.
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
