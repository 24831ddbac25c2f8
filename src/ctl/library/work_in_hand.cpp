#include "ctl/library/work_in_hand.h"

#include <fcntl.h>
#include <sys/file.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "ctl/commands/work_queue_file.h"

namespace keldo::ctl {
namespace {

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

bool WorkInHand::Fail(const std::string& path) {
  problem_ = std::strerror(errno);
  problem_path_ = path;
  return false;
}

bool WorkInHand::KeepOthersOut() {
  lock_.reset(::open(paths_.run_lock.c_str(),
                     O_RDONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600));
  if (!lock_.valid()) return Fail(paths_.run_lock);
  if (::flock(lock_.get(), LOCK_EX | LOCK_NB) == 0) return true;
  is_busy_ = errno == EWOULDBLOCK;
  return Fail(paths_.run_lock);
}

bool WorkInHand::Take() {
  LockedQueue waiting(paths_.waiting);
  if (!waiting.held()) return Fail(paths_.waiting);
  LockedQueue in_work(paths_.in_work, /*make_missing=*/true);
  if (!in_work.held()) return Fail(paths_.in_work);
  const std::vector<std::string> left = LinesOf(in_work.content());
  entries_ = Joined({}, Joined(left, LinesOf(waiting.content())));
  if (entries_ != left && !in_work.Replace(TextOf(entries_))) return Fail(paths_.in_work);
  return waiting.content().empty() || waiting.Replace("") || Fail(paths_.waiting);
}

bool WorkInHand::Finish(const std::set<std::string>& done) {
  if (!RemoveFromQueue(paths_.in_work, done)) return Fail(paths_.in_work);
  std::erase_if(entries_, [&done](const std::string& entry) { return done.contains(entry); });
  return true;
}

bool WorkInHand::GiveBack() {
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

bool WorkInHand::RemoveEmptyFile() {
  LockedQueue in_work(paths_.in_work);
  if (!in_work.held()) return Fail(paths_.in_work);
  return !LinesOf(in_work.content()).empty() || in_work.Remove() || Fail(paths_.in_work);
}

}  // namespace keldo::ctl
