#include "util/file_content.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>

namespace keldo {

UniqueFd OpenRegularFile(const char* path) {
  UniqueFd fd(::open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat status {};
  if (!fd.valid() || ::fstat(fd.get(), &status) != 0) return UniqueFd();
  if (S_ISREG(status.st_mode)) return fd;
  fd.reset();
  errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
  return fd;
}

bool ReadToEnd(int fd, std::string& content) {
  std::array<char, 16384> block;
  while (true) {
    const ssize_t got = ::read(fd, block.data(), block.size());
    if (got == 0) return true;
    if (got > 0) {
      content.append(block.data(), static_cast<std::size_t>(got));
    } else if (errno != EINTR) {
      return false;
    }
  }
}

std::optional<std::string> ReadRegularFile(const char* path) {
  const UniqueFd fd = OpenRegularFile(path);
  std::string content;
  if (!fd.valid() || !ReadToEnd(fd.get(), content)) return std::nullopt;
  return content;
}

bool WriteAll(int fd, std::string_view content) {
  while (!content.empty()) {
    const ssize_t written = ::write(fd, content.data(), content.size());
    if (written >= 0) {
      content.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

}  // namespace keldo
