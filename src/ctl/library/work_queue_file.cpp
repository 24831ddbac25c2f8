#include "ctl/library/work_queue_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "util/files.h"
#include "util/text.h"

namespace keldo::ctl {
namespace {

// Opened for reading only, which is enough for a lock: a queue without a line of ours need not be
// writable.
UniqueFd Open(const std::string& path, bool make_missing) {
  UniqueFd fd = OpenRegularFile(path.c_str());
  if (fd.valid() || errno != ENOENT || !make_missing) return fd;
  fd.reset(::open(path.c_str(), O_RDONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
  if (fd.valid() && ::fchmod(fd.get(), 0644) != 0) return {};
  if (!fd.valid() && errno == EEXIST) return OpenRegularFile(path.c_str());
  return fd;
}

// The path with links resolved: replacing a symbolic link would leave its target unchanged.
std::string BehindLinks(const std::string& path) {
  std::error_code missing;
  const std::filesystem::path resolved = std::filesystem::canonical(path, missing);
  return missing ? path : resolved.native();
}

// `lines`, followed by those of `more` that are new, in their order.
std::vector<std::string> Joined(std::vector<std::string> lines,
                                const std::vector<std::string>& more) {
  std::set<std::string> known(lines.begin(), lines.end());
  for (const std::string& line : more) {
    if (known.insert(line).second) lines.push_back(line);
  }
  return lines;
}

std::string TextOf(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines)
    text += line + "\n";
  return text;
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
    // The owner first: changing it clears bits of the mode.
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

bool QueueClaim::Fail(const std::string& path) {
  problem_ = std::strerror(errno);
  problem_path_ = path;
  return false;
}

bool QueueClaim::Lock() {
  lock_.reset(::open(paths_.run_lock.c_str(),
                     O_RDONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600));
  if (!lock_.valid()) return Fail(paths_.run_lock);
  if (::flock(lock_.get(), LOCK_EX | LOCK_NB) == 0) return true;
  is_busy_ = errno == EWOULDBLOCK;
  return Fail(paths_.run_lock);
}

bool QueueClaim::Claim() {
  LockedQueue waiting(paths_.waiting);
  if (!waiting.held()) return Fail(paths_.waiting);
  LockedQueue in_work(paths_.in_work, /*make_missing=*/true);
  if (!in_work.held()) return Fail(paths_.in_work);
  const std::vector<std::string> left = LinesOf(in_work.content());
  entries_ = Joined({}, Joined(left, LinesOf(waiting.content())));
  if (entries_ != left && !in_work.Replace(TextOf(entries_))) return Fail(paths_.in_work);
  return waiting.content().empty() || waiting.Replace("") || Fail(paths_.waiting);
}

bool QueueClaim::Finish(const std::set<std::string>& done) {
  if (!RemoveFromQueue(paths_.in_work, done)) return Fail(paths_.in_work);
  std::erase_if(entries_, [&done](const std::string& entry) { return done.contains(entry); });
  return true;
}

bool QueueClaim::Return() {
  if (!entries_.empty()) {
    LockedQueue waiting(paths_.waiting, /*make_missing=*/true);
    if (!waiting.held()) return Fail(paths_.waiting);
    if (!waiting.Replace(TextOf(Joined(entries_, LinesOf(waiting.content()))))) {
      return Fail(paths_.waiting);
    }
    // Not the whole file: entries that another program added are not ours to remove.
    if (!Finish({entries_.begin(), entries_.end()})) return false;
  }
  return RemoveEmptyFile();
}

bool QueueClaim::RemoveEmptyFile() {
  LockedQueue in_work(paths_.in_work);
  if (!in_work.held()) return Fail(paths_.in_work);
  return !LinesOf(in_work.content()).empty() || in_work.Remove() || Fail(paths_.in_work);
}

}  // namespace keldo::ctl
