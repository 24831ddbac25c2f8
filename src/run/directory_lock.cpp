#include "run/directory_lock.h"

#include <fcntl.h>
#include <syslog.h>

namespace keldo {

DirectoryLock::DirectoryLock(const std::string& metadata_dir)
    : directory_(open(metadata_dir.c_str(), O_RDONLY | O_CLOEXEC, 0777)) {
  if (!directory_.valid()) {
    syslog(LOG_ERR, "%s:%d Failed to open %s", "keldothumb", 920, metadata_dir.c_str());
    return;
  }
  if (flock(directory_.get(), LOCK_EX | LOCK_NB) != 0) {
    syslog(LOG_ERR, "%s:%d Failed to lock %s", "keldothumb", 925, metadata_dir.c_str());
    return;
  }
  held_ = true;
}

DirectoryLock::~DirectoryLock() {
  // Explicitly: a child that has not reached its program yet still shares the descriptor.
  if (directory_.valid()) flock(directory_.get(), LOCK_UN);
}

}  // namespace keldo
