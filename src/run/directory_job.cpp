#include <fcntl.h>
#include <sys/file.h>
#include <syslog.h>

#include <ctime>
#include <string>
#include <vector>

#include "platform/index_ipc.h"
#include "render/dir_photos.h"
#include "run/thumb_job.h"
#include "thumbs/directories.h"
#include "thumbs/metadata_names.h"
#include "thumbs/paths.h"
#include "util/termination.h"

namespace keldo {
namespace {

constexpr const char* kSource = "keldothumb";

// Queues a directory with work left, so that the indexer runs the program on it again.
void QueueDirectory(const std::string& directory) {
  if (keldoindexutils::filesystem::WriteIndexQueue(directory, paths::kThumbQueue)) return;
  syslog(LOG_ERR, "%s:%d Failed to write [%s] to thumb queue", kSource, 1169, directory.c_str());
}

// Works through the photos. True when at least one has a phase left for a later run.
bool ProcessPhotos(const ThumbJob& job, const std::vector<std::string>& names, time_t start_time) {
  bool deferred = false;
  for (const std::string& name : names) {
    LetTerminationIn();
    const PhotoOutcome outcome = PhotoTask(job, name, start_time).Run();
    if (outcome == PhotoOutcome::kStopDirectory) break;
    if (outcome == PhotoOutcome::kDeferred) deferred = true;
  }
  return deferred;
}

}  // namespace

DirectoryLock::DirectoryLock(const std::string& metadata_dir)
    : directory_(open(metadata_dir.c_str(), O_RDONLY | O_CLOEXEC, 0777)) {
  if (!directory_.valid()) {
    syslog(LOG_ERR, "%s:%d Failed to open %s", kSource, 920, metadata_dir.c_str());
    return;
  }
  if (flock(directory_.get(), LOCK_EX | LOCK_NB) != 0) {
    syslog(LOG_ERR, "%s:%d Failed to lock %s", kSource, 925, metadata_dir.c_str());
    return;
  }
  held_ = true;
}

DirectoryLock::~DirectoryLock() {
  // Unlock explicitly: a child that has not yet called exec still shares the descriptor.
  if (directory_.valid()) flock(directory_.get(), LOCK_UN);
}

void RunThumbJob(const ThumbJob& job) {
  const std::string metadata_dir = job.path + "/" + kMetadataDirectory;
  const std::vector<std::string> names = ListDirPhotos(job.path);
  const time_t start_time = time(nullptr);
  if (names.empty() || !checkCreateDir(metadata_dir)) return;

  bool deferred = false;
  {
    const DirectoryLock lock(metadata_dir);
    if (!lock.held()) return;
    deferred = ProcessPhotos(job, names, start_time);
  }
  if (deferred) QueueDirectory(job.path);
}

}  // namespace keldo
