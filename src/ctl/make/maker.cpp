#include "ctl/make/maker.h"

#include <poll.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <numeric>
#include <utility>

#include "ctl/library/diagnosis.h"

namespace keldo::ctl {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kRefreshEvery{500};
// Looking how far the running directories are may take this part of the time at most.
constexpr int kRefreshShare = 20;
// Kernels before 5.3 do not tell when a child ends: look this often instead.
constexpr milliseconds kLookEvery{50};

constexpr int kLowestPriority = 19;
constexpr int kIoprioWhoProcess = 1;
constexpr int kIoprioIdle = 3 << 13;

int Lacking(const LibraryCounts& counts) {
  return counts.Thumbs(ThumbState::kMissing) + counts.Thumbs(ThumbState::kStale) +
         counts.Thumbs(ThumbState::kFailed);
}

int Complete(const LibraryCounts& counts) {
  return counts.photos - counts.failed_photos - counts.unfinished_photos;
}

int FailedSince(const DirectoryState& state, time_t begin) {
  return static_cast<int>(std::count_if(
      state.photos.begin(), state.photos.end(),
      [begin](const PhotoState& photo) { return photo.IsFailed() && photo.failed_at >= begin; }));
}

}  // namespace

void YieldToOthers(pid_t pid) {
  static_cast<void>(setpriority(PRIO_PROCESS, static_cast<id_t>(pid), kLowestPriority));
  static_cast<void>(syscall(SYS_ioprio_set, kIoprioWhoProcess, pid, kIoprioIdle));
}

std::string TextOfStatus(int status) {
  if (!WIFSIGNALED(status)) {
    return "keldothumb ended with status " + std::to_string(WEXITSTATUS(status));
  }
  return "keldothumb was killed by signal " + std::to_string(WTERMSIG(status)) + " (" +
         ::strsignal(WTERMSIG(status)) + ")";
}

Maker::Maker(MakeOptions options, PhotoScanner& scanner, int stop_fd, Report report)
    : options_(std::move(options)),
      scanner_(scanner),
      stop_fd_(stop_fd),
      report_(std::move(report)),
      begin_(Clock::now()),
      begin_time_(time(nullptr)),
      next_refresh_(begin_ + kRefreshEvery) {}

MakeOutcome Maker::Run(std::vector<DirectoryState> directories) {
  Take(std::move(directories));
  while (problem_.empty() && !stopped_) {
    StartWhatCanRun();
    if (running_.empty() && waiting_.empty()) break;
    WaitForNews();
    ReapEnded();
    if (Clock::now() >= next_refresh_) Refresh();
  }
  StopAll();
  MakeOutcome outcome{Progress(), {}, std::move(troubles_), stopped_, problem_};
  for (Folder& folder : folders_)
    outcome.directories.push_back(std::move(folder.state));
  return outcome;
}

void Maker::Take(std::vector<DirectoryState> directories) {
  for (DirectoryState& state : directories) {
    const LibraryCounts counts = CountsOf(state);
    if (counts.unfinished_photos > 0) waiting_.push_back(folders_.size());
    folders_.push_back({std::move(state), counts, 0, 0, {}});
  }
  // The largest first: begun last, it would be alone on one processor at the end.
  std::stable_sort(waiting_.begin(), waiting_.end(), [this](std::size_t a, std::size_t b) {
    return Lacking(folders_[a].at_start) > Lacking(folders_[b].at_start);
  });
}

void Maker::StartWhatCanRun() {
  const Clock::time_point now = Clock::now();
  for (std::size_t looked_at = waiting_.size(); looked_at > 0 && problem_.empty(); --looked_at) {
    if (running_.size() >= static_cast<std::size_t>(options_.jobs)) return;
    const std::size_t folder = waiting_.front();
    waiting_.pop_front();
    if (folders_[folder].not_before > now) {
      waiting_.push_back(folder);
    } else {
      folders_[folder].not_before = {};
      Start(folder);
    }
  }
}

// The processors are shared out: as a rule each run's converter gets one, since several pictures at
// once are faster than one picture on several processors.
void Maker::ShareProcessors() const {
  const std::size_t runs =
      std::min(running_.size() + waiting_.size() + 1, static_cast<std::size_t>(options_.jobs));
  const std::string threads = std::to_string(static_cast<std::size_t>(options_.jobs) / runs);
  setenv("MAGICK_THREAD_LIMIT", threads.c_str(), 1);
  setenv("OMP_NUM_THREADS", threads.c_str(), 1);
}

void Maker::Start(std::size_t folder) {
  Folder& started = folders_[folder];
  ShareProcessors();
  process::ChildPlan plan{options_.keldothumb,
                          {options_.keldothumb, options_.profile_path, started.state.path}};
  plan.stdout_fd = process::ChildPlan::kDevNull;
  plan.stderr_fd = options_.show_messages ? STDERR_FILENO : process::ChildPlan::kDevNull;
  int error = 0;
  std::optional<process::Child> child = process::Child::Start(plan, error);
  if (!child) {
    problem_ = options_.keldothumb + " cannot be started: " + std::strerror(error);
    return;
  }
  if (options_.nice) YieldToOthers(child->pid());
  started.present_before_run = CountsOf(started.state).Thumbs(ThumbState::kPresent);
  started.failed_before_run = FailedSince(started.state, begin_time_);
  running_.push_back({std::move(*child), folder});
}

void Maker::WaitForNews() {
  std::vector<pollfd> events{{stop_fd_, POLLIN, 0}};
  milliseconds timeout = std::chrono::ceil<milliseconds>(next_refresh_ - Clock::now());
  for (const Running& running : running_) {
    if (running.child.pidfd() < 0) timeout = std::min(timeout, kLookEvery);
    events.push_back({running.child.pidfd(), POLLIN, 0});
  }
  timeout = std::max(timeout, milliseconds::zero());
  // Interrupted by a signal, it has news in the stop descriptor, or none.
  if (poll(events.data(), events.size(), static_cast<int>(timeout.count())) < 0) return;
  stopped_ = events.front().revents != 0;
}

void Maker::ReapEnded() {
  for (auto running = running_.begin(); running != running_.end();) {
    if (!running->child.WaitUntil(Clock::now())) {
      ++running;
      continue;
    }
    const std::size_t folder = running->folder;
    const int status = running->child.KillAndReap();
    if (status != 0) troubles_.push_back({folders_[folder].state.path, TextOfStatus(status)});
    running = running_.erase(running);
    Judge(folder);
  }
}

// Decides whether a directory has another turn.
void Maker::Judge(std::size_t folder) {
  Folder& judged = folders_[folder];
  judged.state = scanner_.Scan(judged.state.path);
  const LibraryCounts counts = CountsOf(judged.state);
  if (counts.unfinished_photos == 0) return;
  const bool was_worth_it = counts.Thumbs(ThumbState::kPresent) > judged.present_before_run ||
                            FailedSince(judged.state, begin_time_) > judged.failed_before_run;
  if (was_worth_it) {
    // At once, so that a photo is complete as soon as it can be.
    waiting_.push_front(folder);
  } else if (IsDirectoryLocked(judged.state.path)) {
    judged.not_before = Clock::now() + options_.locked_again_after;
    waiting_.push_back(folder);
  }
}

// Looks how far the running directories are, and tells.
void Maker::Refresh() {
  const Clock::time_point begin = Clock::now();
  for (const Running& running : running_)
    folders_[running.folder].state = scanner_.Scan(folders_[running.folder].state.path);
  const Clock::time_point end = Clock::now();
  next_refresh_ = end + std::max<Clock::duration>(kRefreshEvery, kRefreshShare * (end - begin));
  if (report_) report_(Progress());
}

// Asked to terminate, a run would stop every converter on the machine by its name, those of our
// other runs and of other people among them, which would then be marked as failures.
void Maker::StopAll() {
  std::vector<std::size_t> folders;
  for (const Running& running : running_) {
    running.child.KillWithChildren();
    folders.push_back(running.folder);
  }
  running_.clear();
  for (const std::size_t folder : folders)
    folders_[folder].state = scanner_.Scan(folders_[folder].state.path);
}

MakeProgress Maker::Progress() const {
  MakeProgress progress;
  for (const std::size_t waiting : waiting_) {
    if (folders_[waiting].not_before != Clock::time_point{}) ++progress.folders_locked;
  }
  for (const Folder& folder : folders_) {
    if (folder.at_start.unfinished_photos == 0) continue;
    const LibraryCounts now = CountsOf(folder.state);
    progress.photos_total += folder.at_start.unfinished_photos;
    progress.photos_done += std::max(0, Complete(now) - Complete(folder.at_start));
    progress.photos_failed += FailedSince(folder.state, begin_time_);
    progress.thumbs_total += Lacking(folder.at_start);
    progress.thumbs_made += std::max(
        0, now.Thumbs(ThumbState::kPresent) - folder.at_start.Thumbs(ThumbState::kPresent));
  }
  progress.elapsed = Clock::now() - begin_;
  return progress;
}

}  // namespace keldo::ctl
