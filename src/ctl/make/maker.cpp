#include "ctl/make/maker.h"

#include <poll.h>

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
// Scanning directories during their runs may take at most 1/kRefreshShare of the time.
constexpr int kRefreshShare = 20;
// Kernels before 5.3 do not report the end of a child: poll this often instead.
constexpr milliseconds kPollEvery{50};

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

Maker::Maker(MakeOptions options, PhotoScanner& scanner, int stop_fd, Report report)
    : options_(std::move(options)),
      scanner_(scanner),
      stop_fd_(stop_fd),
      report_(std::move(report)),
      runner_({options_.keldothumb, options_.profile_path, options_.nice, options_.show_messages}),
      begin_(Clock::now()),
      begin_time_(time(nullptr)),
      next_refresh_(begin_ + kRefreshEvery) {}

MakeOutcome Maker::Run(std::vector<DirectoryState> directories) {
  Add(std::move(directories));
  while (problem_.empty() && !stopped_) {
    StartWhatCanRun();
    if (runner_.size() == 0 && waiting_.empty()) break;
    WaitForEvents();
    FinishEnded();
    if (Clock::now() >= next_refresh_) Refresh();
  }
  const std::vector<std::string> stopped = runner_.Directories();
  runner_.StopAll();
  Scan(stopped);
  MakeOutcome outcome{Progress(), {}, std::move(troubles_), stopped_, problem_};
  for (Folder& folder : folders_)
    outcome.directories.push_back(std::move(folder.state));
  return outcome;
}

void Maker::Add(std::vector<DirectoryState> directories) {
  for (DirectoryState& state : directories) {
    const LibraryCounts counts = CountsOf(state);
    if (counts.unfinished_photos > 0) waiting_.push_back(folders_.size());
    folder_of_[state.path] = folders_.size();
    folders_.push_back({std::move(state), counts, 0, 0, {}});
  }
  // The largest directory first: started last, it would keep one processor busy while the others
  // have nothing left to do.
  std::stable_sort(waiting_.begin(), waiting_.end(), [this](std::size_t a, std::size_t b) {
    return Lacking(folders_[a].at_start) > Lacking(folders_[b].at_start);
  });
}

void Maker::StartWhatCanRun() {
  const Clock::time_point now = Clock::now();
  for (std::size_t looked_at = waiting_.size(); looked_at > 0 && problem_.empty(); --looked_at) {
    if (runner_.size() >= static_cast<std::size_t>(options_.jobs)) return;
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

// Shares the processors among the runs. Usually each run's converter gets one, because several
// images at a time are faster than one image on several processors.
void Maker::ShareProcessors() const {
  const std::size_t runs =
      std::min(runner_.size() + waiting_.size() + 1, static_cast<std::size_t>(options_.jobs));
  const std::string threads = std::to_string(static_cast<std::size_t>(options_.jobs) / runs);
  setenv("MAGICK_THREAD_LIMIT", threads.c_str(), 1);
  setenv("OMP_NUM_THREADS", threads.c_str(), 1);
}

void Maker::Start(std::size_t folder) {
  Folder& started = folders_[folder];
  ShareProcessors();
  const int error = runner_.Start(started.state.path);
  if (error != 0) {
    problem_ = options_.keldothumb + " cannot be started: " + std::strerror(error);
    return;
  }
  started.present_before_run = CountsOf(started.state).Thumbs(ThumbState::kPresent);
  started.failed_before_run = FailedSince(started.state, begin_time_);
}

void Maker::WaitForEvents() {
  std::vector<pollfd> events{{stop_fd_, POLLIN, 0}};
  runner_.AddEvents(events);
  milliseconds timeout = std::chrono::ceil<milliseconds>(next_refresh_ - Clock::now());
  if (runner_.MustPoll()) timeout = std::min(timeout, kPollEvery);
  timeout = std::max(timeout, milliseconds::zero());
  // After a signal the stop descriptor is readable, or there is nothing to do.
  if (poll(events.data(), events.size(), static_cast<int>(timeout.count())) < 0) return;
  stopped_ = events.front().revents != 0;
}

void Maker::FinishEnded() {
  for (const ThumbRunner::Ended& ended : runner_.CollectEnded()) {
    if (ended.status != 0) troubles_.push_back({ended.directory, TextOfStatus(ended.status)});
    FinishRun(folder_of_.at(ended.directory));
  }
}

// Decides whether a directory is run again.
void Maker::FinishRun(std::size_t folder) {
  Folder& done = folders_[folder];
  done.state = scanner_.Scan(done.state.path);
  const LibraryCounts counts = CountsOf(done.state);
  if (counts.unfinished_photos == 0) return;
  const bool was_worth_it = counts.Thumbs(ThumbState::kPresent) > done.present_before_run ||
                            FailedSince(done.state, begin_time_) > done.failed_before_run;
  if (was_worth_it) {
    // Run it again at once, so that its photos are complete as soon as possible.
    waiting_.push_front(folder);
  } else if (IsDirectoryLocked(done.state.path)) {
    done.not_before = Clock::now() + options_.locked_again_after;
    waiting_.push_back(folder);
  }
}

// Scans the directories that runs are working on, and reports the progress.
void Maker::Refresh() {
  const Clock::time_point begin = Clock::now();
  Scan(runner_.Directories());
  const Clock::time_point end = Clock::now();
  next_refresh_ = end + std::max<Clock::duration>(kRefreshEvery, kRefreshShare * (end - begin));
  if (report_) report_(Progress());
}

void Maker::Scan(const std::vector<std::string>& directories) {
  for (const std::string& directory : directories)
    folders_[folder_of_.at(directory)].state = scanner_.Scan(directory);
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
