#include "util/atomic_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "util/file_content.h"
#include "util/unique_fd.h"

namespace keldo {
namespace {

constexpr mode_t kReadableForAll = 0644;

// "/var/spool/.keldo-XXXXXX" for any file of /var/spool. Not the file's name with something added:
// that may be longer than the file system takes.
std::string TemporaryBeside(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return path.substr(0, slash == std::string::npos ? 0 : slash + 1) + ".keldo-XXXXXX";
}

bool Fill(UniqueFd fd, std::string_view content) {
  if (!WriteAll(fd.get(), content) || ::fchmod(fd.get(), kReadableForAll) != 0) return false;
  return ::close(fd.release()) == 0;  // some file systems tell only now that the disk is full
}

}  // namespace

bool ReplaceFile(const std::string& path, std::string_view content) {
  std::string temporary = TemporaryBeside(path);
  UniqueFd fd(::mkostemp(temporary.data(), O_CLOEXEC));
  if (!fd.valid()) return false;
  if (Fill(std::move(fd), content) && ::rename(temporary.c_str(), path.c_str()) == 0) return true;
  const int reason = errno;
  ::unlink(temporary.c_str());
  errno = reason;
  return false;
}

}  // namespace keldo
