#include <dirent.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string_view>

#include "platform/index_ipc.h"
#include "util/files.h"
#include "util/handles.h"
#include "util/path.h"
#include "util/text.h"

namespace keldoindexutils::filesystem {
namespace {

using keldo::HasLine;
using keldo::OpenLocked;
using keldo::ReadToEnd;
using keldo::UniqueFd;
using keldo::WriteAll;

// Opens the queue, or makes it when it is missing. Invalid when it is not a regular file.
UniqueFd OpenQueue(const std::string& path) {
  constexpr int kFlags = O_RDWR | O_APPEND | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  UniqueFd fd(::open(path.c_str(), kFlags));
  if (!fd.valid() && errno == ENOENT) {
    fd.reset(::open(path.c_str(), kFlags | O_CREAT | O_EXCL, 0644));
    if (fd.valid() && ::fchmod(fd.get(), 0644) != 0) return UniqueFd();
    // Another process created it first; use that one.
    if (!fd.valid() && errno == EEXIST) fd.reset(::open(path.c_str(), kFlags));
  }
  struct stat status {};
  if (!fd.valid() || ::fstat(fd.get(), &status) != 0 || !S_ISREG(status.st_mode)) return UniqueFd();
  return fd;
}

// Appends the line with one write. On failure removes what a full disk still accepted of it, unless
// a program that ignores the lock has written after it.
bool AppendLine(int fd, const std::string& content, const std::string& text) {
  const bool last_line_was_cut = !content.empty() && !content.ends_with('\n');
  std::string line(last_line_was_cut ? 1 : 0, '\n');
  line.append(text).append("\n");
  if (WriteAll(fd, line)) return true;
  struct stat status {};
  const bool ours_is_last = ::fstat(fd, &status) == 0 && ::lseek(fd, 0, SEEK_CUR) == status.st_size;
  if (ours_is_last) static_cast<void>(!::ftruncate(fd, static_cast<off_t>(content.size())));
  return false;
}

}  // namespace

bool WriteIndexQueue(const std::string& text, const std::string& queue_path) {
  // Neither an empty text nor one with a newline would be read back as the same entry.
  if (text.empty() || text.find('\n') != std::string::npos) return false;
  // While we wait for the lock, the queue may be renamed so that its work can be done. A line
  // written to the old file might then never be read.
  const UniqueFd fd = OpenLocked(queue_path, [&] { return OpenQueue(queue_path); });
  std::string content;
  if (!fd.valid() || !ReadToEnd(fd.get(), content)) return false;
  return HasLine(content, text) || AppendLine(fd.get(), content, text);
}

// Not glob(3), which treats the whole path as a pattern and looks every match up again. This runs
// once for every photo, so it opens, reads and closes the directory and does nothing else.
std::vector<std::string> GlobFiles(const std::string& directory, const std::string& pattern) {
  std::vector<std::string> paths;
  const keldo::UniqueDir stream(::opendir(directory.c_str()));
  if (!stream) return paths;
  while (const dirent* entry = ::readdir(stream.get())) {
    const std::string_view name(entry->d_name);
    if (name == "." || name == "..") continue;
    if (::fnmatch(pattern.c_str(), entry->d_name, FNM_PERIOD) != 0) continue;
    paths.push_back(keldo::JoinPath(directory, name));
  }
  std::ranges::sort(paths);
  return paths;
}

}  // namespace keldoindexutils::filesystem
