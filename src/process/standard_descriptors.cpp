#include <fcntl.h>
#include <unistd.h>

#include "process/child.h"

namespace keldo::process {

void EnsureStandardDescriptors() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    // open gives the lowest free number, which is `fd`, since those below it are open by now.
    if (fcntl(fd, F_GETFD) < 0 && open("/dev/null", O_RDWR) < 0) return;  // NOLINT: kept open
  }
}

}  // namespace keldo::process
