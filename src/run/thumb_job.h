// The thumbnail job: all photos of one directory, and one photo step by step.
#pragma once

#include <ctime>
#include <string>

#include "platform/file.h"
#include "thumbs/thumb_profile.h"
#include "util/handles.h"

namespace keldo {

/// Makes the missing and outdated thumbnails of every photo that lies directly in the job's
/// directory, under the directory's lock. Reports through the log, the thumbnails and failure
/// markers, the progress files, the daemon and the thumbnail queue.
void RunThumbJob(const ThumbJob& job);

/// Holds the exclusive lock of a metadata directory, which is its own lock file.
class DirectoryLock {
 public:
  /// Tries to lock `metadata_dir` without waiting. A failure is logged and leaves `held` false.
  explicit DirectoryLock(const std::string& metadata_dir);
  /// Unlocks and closes.
  ~DirectoryLock();
  DirectoryLock(const DirectoryLock&) = delete;
  DirectoryLock& operator=(const DirectoryLock&) = delete;

  [[nodiscard]] bool held() const { return held_; }

 private:
  UniqueFd directory_;
  bool held_ = false;
};

/// What a photo means for the rest of its directory.
enum class PhotoOutcome {
  kDone,           ///< Nothing is left to do for it, or nothing can be done.
  kDeferred,       ///< Its last phase is left for a later run.
  kStopDirectory,  ///< The volume is nearly full: leave the rest of the directory.
};

/// Brings one photo's thumbnails up to date. Used once.
class PhotoTask {
 public:
  /// `start_time` is when the job began (seconds since the epoch).
  PhotoTask(const ThumbJob& job, const std::string& photo_name, time_t start_time);

  [[nodiscard]] PhotoOutcome Run();

 private:
  // What a step says about the next one.
  enum class Step { kGoOn, kNextPhoto };

  [[nodiscard]] Step Prepare();
  [[nodiscard]] PhotoOutcome RenderFrom(int start_phase);
  [[nodiscard]] Step DecodeRaw();
  [[nodiscard]] bool IsSourceRegularFile() const;
  void ChooseOrientation(int start_phase);
  [[nodiscard]] Step RenderPhase0(const ThumbProfile& base);
  [[nodiscard]] PhotoOutcome RenderPhase1();
  void RenderPhase2();

  void Announce() const;
  void CountCompleted(int thumbnails) const;
  [[nodiscard]] int CountOf(int phase) const;

  const ThumbJob& job_;
  const time_t start_time_;
  const std::string photo_path_;
  const std::string ea_dir_;
  std::string source_;  // The photo, then a RAW photo's intermediate, then the base thumbnail.
  KLIBCFileRecord record_{};
  bool raw_ = false;
  bool auto_orient_ = true;
  int rotate_ = 0;
};

}  // namespace keldo
