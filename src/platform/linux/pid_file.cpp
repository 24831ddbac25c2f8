#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "platform/process.h"
#include "util/handles.h"

int KLIBCProcPidFileCreate(const char* path) {
  constexpr mode_t kMode = 0644;
  // A new file, so that nothing is written through a link that somebody left there.
  if (unlink(path) != 0 && errno != ENOENT) return -1;
  const keldo::UniqueFd file(
      open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kMode));
  if (!file.valid() || fchmod(file.get(), kMode) != 0) return -1;
  const std::string text = std::to_string(getpid()) + "\n";
  const ssize_t written = write(file.get(), text.data(), text.size());
  return written == static_cast<ssize_t>(text.size()) ? 0 : -1;
}
