#include "run/directory_job.h"

#include <syslog.h>

#include <ctime>
#include <string>
#include <vector>

#include "platform/index_ipc.h"
#include "render/dir_photos.h"
#include "run/directory_lock.h"
#include "run/photo_task.h"
#include "thumbs/dir_helpers.h"
#include "thumbs/paths.h"
#include "util/termination.h"

namespace keldo {
namespace {

// Hands a directory with work left back to the indexer, which runs the program on it again.
void QueueDirectory(const std::string& directory) {
  if (keldoindexutils::filesystem::WriteIndexQueue(directory, paths::kThumbQueue)) return;
  syslog(LOG_ERR, "%s:%d Failed to write [%s] to thumb queue", "keldothumb", 1169,
         directory.c_str());
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

void RunThumbJob(const ThumbJob& job) {
  const std::string metadata_dir = job.path + "/@eaDir";
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
