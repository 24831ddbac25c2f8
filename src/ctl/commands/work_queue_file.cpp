#include "ctl/commands/work_queue_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "util/files.h"
#include "util/text.h"

namespace keldo::ctl {
namespace {

// Open for reading only, which is enough for a lock: without a line of ours in it the queue need
// not be ours to write.
UniqueFd Open(const std::string& path, bool make_missing) {
  UniqueFd fd = OpenRegularFile(path.c_str());
  if (fd.valid() || errno != ENOENT || !make_missing) return fd;
  fd.reset(::open(path.c_str(), O_RDONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
  if (fd.valid() && ::fchmod(fd.get(), 0644) != 0) return {};
  if (!fd.valid() && errno == EEXIST) return OpenRegularFile(path.c_str());
  return fd;
}

// Where the file really is: replacing a symbolic link would leave its target as it was.
std::string BehindLinks(const std::string& path) {
  std::error_code missing;
  const std::filesystem::path resolved = std::filesystem::canonical(path, missing);
  return missing ? path : resolved.native();
}

}  // namespace

std::vector<std::string> LinesOf(std::string_view text) {
  std::vector<std::string> lines;
  while (!text.empty()) {
    const std::string_view line = TakeLine(text);
    if (!line.empty()) lines.emplace_back(line);
  }
  return lines;
}

std::optional<std::vector<std::string>> ReadQueue(const std::string& queue_path) {
  const std::optional<std::string> content = ReadRegularFile(queue_path.c_str());
  if (content) return LinesOf(*content);
  if (errno == ENOENT) return std::vector<std::string>();
  return std::nullopt;
}

LockedQueue::LockedQueue(const std::string& queue_path, bool make_missing)
    : path_(BehindLinks(queue_path)),
      fd_(OpenLocked(path_, [&] { return Open(path_, make_missing); })) {
  if (fd_.valid()) {
    held_ = ReadToEnd(fd_.get(), content_);
    struct stat status {};
    if (::fstat(fd_.get(), &status) == 0) status_ = status;
  } else {
    held_ = errno == ENOENT && !make_missing;
  }
}

bool LockedQueue::Replace(const std::string& content) {
  if (!ReplaceFile(path_, content)) return false;
  if (status_) {
    // The owner first: giving a file away takes bits off its mode.
    static_cast<void>(!::lchown(path_.c_str(), status_->st_uid, status_->st_gid));
    static_cast<void>(!::chmod(path_.c_str(), status_->st_mode & 07777));
  }
  fd_.reset();
  content_ = content;
  return true;
}

bool LockedQueue::Remove() {
  if (::unlink(path_.c_str()) != 0 && errno != ENOENT) return false;
  fd_.reset();
  content_.clear();
  return true;
}

bool RemoveFromQueueIf(const std::string& queue_path,
                       const std::function<bool(const std::string& line)>& is_done) {
  LockedQueue queue(queue_path);
  if (!queue.held()) return false;
  std::string kept;
  bool found = false;
  for (std::string_view rest = queue.content(); !rest.empty();) {
    const std::string_view from = rest;
    const std::string_view line = TakeLine(rest);
    if (is_done(std::string(line))) {
      found = true;
    } else {
      kept += from.substr(0, from.size() - rest.size());  // with its newline, if it has one
    }
  }
  return !found || queue.Replace(kept);
}

bool RemoveFromQueue(const std::string& queue_path, const std::set<std::string>& paths) {
  return RemoveFromQueueIf(queue_path,
                           [&paths](const std::string& line) { return paths.contains(line); });
}

}  // namespace keldo::ctl
