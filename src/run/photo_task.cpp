#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include "platform/file_types.h"
#include "platform/system.h"
#include "platform/text.h"
#include "render/orientation.h"
#include "render/pipeline.h"
#include "render/raw_decode.h"
#include "render/resolution.h"
#include "render/thumb_requests.h"
#include "run/thumb_job.h"
#include "thumbs/daemon_requests.h"
#include "thumbs/directories.h"
#include "thumbs/metadata_names.h"
#include "thumbs/progress.h"
#include "thumbs/thumb_state.h"

namespace keldo {
namespace {

constexpr int kErrorLevel = 3;
constexpr int kSetAccessAndModification = 3;
constexpr const char* kSource = "keldothumb";

}  // namespace

PhotoTask::PhotoTask(const ThumbJob& job, const std::string& photo_name, time_t start_time)
    : job_(job),
      start_time_(start_time),
      photo_path_(job.path + "/" + photo_name),
      ea_dir_(job.path + "/" + kMetadataDirectory + "/" + photo_name),
      source_(photo_path_) {}

PhotoOutcome PhotoTask::Run() {
  if (Prepare() == Step::kNextPhoto) return PhotoOutcome::kDone;
  if (GetPhotoThumbStatus(photo_path_, kMaskFromIndex).missing == 0) {
    Announce();
    return PhotoOutcome::kDone;
  }
  if (!HasDiskSpace(job_.path)) {
    syslog(LOG_ERR, "%s:%d Stopping creating thumbs as the disk space is near full, %s", kSource,
           969, photo_path_.c_str());
    return PhotoOutcome::kStopDirectory;
  }
  const int start_phase = FirstPhaseDue(*job_.profiles, photo_path_, ea_dir_);
  if (start_phase == kNoPhaseDue) {
    Announce();
    return PhotoOutcome::kDone;
  }
  return RenderFrom(start_phase);
}

// Looks the photo up and removes the markers of earlier failures, so that it is tried again.
PhotoTask::Step PhotoTask::Prepare() {
  if (!StatSource(photo_path_, record_) || !checkCreateDir(ea_dir_)) return Step::kNextPhoto;
  if (!RemoveFilesByPattern(ea_dir_, kMarkerPattern)) {
    AppLogError(kErrorLevel, "%s:%d Failed to remove files by pattern [%s/%s]", kSource, 956,
                ea_dir_.c_str(), kMarkerPattern);
  }
  return Step::kGoOn;
}

PhotoOutcome PhotoTask::RenderFrom(int start_phase) {
  if (start_phase == 0 && DecodeRaw() == Step::kNextPhoto) return PhotoOutcome::kDone;
  if (!IsSourceRegularFile()) return PhotoOutcome::kDone;
  ChooseOrientation(start_phase);
  const ThumbProfile* base = job_.profiles->at(job_.profiles->count(0) - 1, 0);
  if (base == nullptr) return PhotoOutcome::kDone;
  if (start_phase == 0 && RenderPhase0(*base) == Step::kNextPhoto) return PhotoOutcome::kDone;

  // The later phases are made from the base thumbnail, so that the photo is decoded once only.
  const std::optional<FoundThumbnail> base_thumbnail = FindThumbnail(*base, ea_dir_);
  if (!base_thumbnail) return PhotoOutcome::kDone;
  source_ = base_thumbnail->path;
  if (start_phase != 2) return RenderPhase1();
  RenderPhase2();
  return PhotoOutcome::kDone;
}

// Makes a RAW photo's intermediate image the source.
PhotoTask::Step PhotoTask::DecodeRaw() {
  raw_ = keldoindexutils::DoesRawImage(keldoindexutils::GetFileExtension(photo_path_));
  if (!raw_) return Step::kGoOn;
  source_ = ConvertRawImage(job_, source_, ea_dir_);
  if (source_.empty()) {
    RemoveRawIntermediates(ea_dir_);
    CountCompleted(MarkPhaseFailed(*job_.profiles, PHASE_ALL, ea_dir_));
    Announce();
    return Step::kNextPhoto;
  }
  // The intermediate of a photo dated in the future must not look older than the photo: its
  // thumbnails get its time.
  if (record_.st.st_mtime > start_time_) {
    const timespec time{record_.st.st_mtime, 0};
    const timespec platform_words{record_.platform_words[0], record_.platform_words[1]};
    KLIBCFileUTime(source_.c_str(), kSetAccessAndModification, {time, time, platform_words});
  }
  return Step::kGoOn;
}

bool PhotoTask::IsSourceRegularFile() const {
  struct stat status {};
  return stat(source_.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

// A photo that the index already knows may have been rotated by its user: its new thumbnails follow
// the existing ones, not the orientation tag.
void PhotoTask::ChooseOrientation(int start_phase) {
  if (GetIndexVersion(source_) <= 0) return;
  auto_orient_ = false;
  if (start_phase == 0) rotate_ = DetectRawRotation(job_, source_, ea_dir_);
}

PhotoTask::Step PhotoTask::RenderPhase0(const ThumbProfile& base) {
  const bool rendered =
      MakePhotoThumbRequests(*job_.profiles, 0, source_, ea_dir_, auto_orient_, rotate_);
  if (raw_) RemoveRawIntermediates(ea_dir_);
  if (!rendered) {
    // There is nothing to make the later phases from. The request has marked its own phase.
    MarkPhaseFailed(*job_.profiles, 1, ea_dir_);
    MarkPhaseFailed(*job_.profiles, 2, ea_dir_);
    CountCompleted(CountOf(0) + CountOf(1) + CountOf(2));
    Announce();
    return Step::kNextPhoto;
  }
  ReportConvertedResolution(job_, photo_path_, ea_dir_ + "/" + base.eaFilename());
  // The photo itself is counted at its last phase.
  AddProgress(kPhotoProgress, kCompletedThumbKey, CountOf(0));
  return Step::kGoOn;
}

PhotoOutcome PhotoTask::RenderPhase1() {
  if (MakePhotoThumbRequests(*job_.profiles, 1, source_, ea_dir_, false, 0)) {
    AddProgress(kPhotoProgress, kCompletedThumbKey, CountOf(1));
    Announce();
    return PhotoOutcome::kDeferred;
  }
  MarkPhaseFailed(*job_.profiles, 2, ea_dir_);
  CountCompleted(CountOf(1) + CountOf(2));
  Announce();
  return PhotoOutcome::kDone;
}

// The last phase finishes the photo, whether it could be rendered or not.
void PhotoTask::RenderPhase2() {
  static_cast<void>(MakePhotoThumbRequests(*job_.profiles, 2, source_, ea_dir_, false, 0));
  CountCompleted(CountOf(2));
  Announce();
}

void PhotoTask::Announce() const {
  PostPhotoConvert(photo_path_);
}

void PhotoTask::CountCompleted(int thumbnails) const {
  AddProgress(kPhotoProgress, kCompletedKey, 1);
  AddProgress(kPhotoProgress, kCompletedThumbKey, thumbnails);
}

int PhotoTask::CountOf(int phase) const {
  return static_cast<int>(job_.profiles->count(phase));
}

}  // namespace keldo
