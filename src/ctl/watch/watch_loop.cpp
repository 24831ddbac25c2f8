#include "ctl/watch/watch_loop.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ostream>
#include <utility>

#include "ctl/library/diagnosis.h"
#include "ctl/library/work_queue_file.h"
#include "util/termination.h"

namespace keldo::ctl {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

// Long walks are done in slices, so that a request to stop need not wait.
constexpr milliseconds kSlice{50};
// Kernels before 5.3 do not report the end of a child: poll this often instead.
constexpr milliseconds kPollEvery{100};

bool NeedsRun(const DirectoryState& directory, const std::set<std::string>& changed) {
  return std::any_of(
      directory.photos.begin(), directory.photos.end(), [&](const PhotoState& photo) {
        return photo.IsUnfinished() || (photo.IsFailed() && changed.contains(photo.name));
      });
}

std::vector<Trouble> FindTroubles(const DirectoryState& directory, bool with_unfinished) {
  std::vector<Trouble> troubles;
  for (const PhotoState& photo : directory.photos) {
    const std::string path = PathOf(directory, photo);
    if (photo.IsFailed()) troubles.push_back({photo.name, WhyFailed(path), photo.bytes, true});
    if (with_unfinished && photo.IsUnfinished()) {
      troubles.push_back({photo.name, WhyUnfinished(path), photo.bytes, false});
    }
  }
  return troubles;
}

std::string SecondsText(Clock::duration duration) {
  return Counted(static_cast<long>(std::chrono::duration_cast<seconds>(duration).count()),
                 "second");
}

}  // namespace

WatchLoop::WatchLoop(WatchSettings settings, Inotify& inotify, Console& console, int stop_fd)
    : settings_(std::move(settings)),
      console_(console),
      stop_fd_(stop_fd),
      inotify_(inotify),
      tree_(inotify, *this),
      scheduler_(SchedulerTimes::FromQuietPeriod(settings_.quiet), settings_.jobs),
      scanner_(settings_.profile_path),
      runner_({settings_.keldothumb, settings_.profile_path, false, console.style().verbose}),
      next_rescan_(Clock::now() + settings_.rescan) {}

void WatchLoop::Run() {
  for (const std::string& root : settings_.roots)
    tree_.AddRoot(root);
  while (!WaitForWork())
    DoWork();
  runner_.StopAll();
}

// Sleeps until there is something to do. True when the watch has to end.
bool WatchLoop::WaitForWork() const {
  std::vector<pollfd> events{{stop_fd_, POLLIN, 0}, {inotify_.fd(), POLLIN, 0}};
  runner_.AddEvents(events);
  const int count = WaitForEvents(events, MillisecondsUntil(NextWork()));
  // After a signal the stop descriptor is readable, or there is nothing to do.
  return count > 0 && events.front().revents != 0;
}

Clock::time_point WatchLoop::NextWork() const {
  const Clock::time_point now = Clock::now();
  if (tree_.HasWork()) return now;
  Clock::time_point next = next_rescan_;
  if (look_at_all_at_) next = std::min(next, *look_at_all_at_);
  if (const auto due = scheduler_.NextDue()) next = std::min(next, *due);
  if (runner_.MustPoll()) next = std::min(next, now + kPollEvery);
  return next;
}

void WatchLoop::DoWork() {
  tree_.ReadEvents();
  WalkOn();
  FinishEnded();
  LookAgain();
  // Only a finished walk shows whether there is any other work.
  if (!tree_.HasWork()) StartWhatIsDue();
}

void WatchLoop::WalkOn() {
  if (tree_.HasWork()) tree_.Work(Clock::now() + kSlice);
  if (has_begun_ || tree_.HasWork()) return;
  has_begun_ = true;
  const std::size_t folders = tree_.watched() + tree_.unwatched();
  if (!console_.style().quiet) Print("watching " + Counted(static_cast<long>(folders), "folder"));
}

void WatchLoop::LookAgain() {
  const Clock::time_point now = Clock::now();
  if (look_at_all_at_ && *look_at_all_at_ <= now) {
    look_at_all_at_.reset();
    tree_.LookAtAll();
  }
  if (next_rescan_ > now) return;
  next_rescan_ = now + settings_.rescan;
  tree_.LookAtUnwatched();
  scheduler_.LookAtFruitless(now);
  std::erase_if(unreadable_,
                [](const std::string& path) { return access(path.c_str(), F_OK) != 0; });
}

void WatchLoop::StartWhatIsDue() {
  const Clock::time_point until = Clock::now() + kSlice;
  do {
    const auto turn = scheduler_.Next(Clock::now());
    if (!turn) return;
    Begin(*turn);
  } while (Clock::now() < until);
}

void WatchLoop::Begin(const ChangeScheduler::Turn& turn) {
  const std::string& directory = turn.directory;
  DirectoryState before = scanner_.Scan(directory);
  const LibraryCounts counts = CountsOf(before);
  if (!NeedsRun(before, turn.photos)) {
    if (counts.failed_photos == 0) troubles_.Forget(directory);
    return scheduler_.Ended(directory, TurnEnd::kComplete, Clock::now());
  }
  if (IsDirectoryLocked(directory)) {
    PrintVerbose(directory, "another run is working on it");
    return scheduler_.Ended(directory, TurnEnd::kLocked, Clock::now());
  }
  PrintVerbose(directory, Counted(counts.unfinished_photos, "photo") + " to do");
  const time_t began = time(nullptr);
  const int error = runner_.Start(directory);
  if (error != 0 && error != start_error_) {
    console_.Fail(settings_.keldothumb, "cannot be started: " + std::string(std::strerror(error)));
  }
  start_error_ = error;
  if (error != 0) return scheduler_.Ended(directory, TurnEnd::kFruitless, Clock::now());
  runs_[directory] = {std::move(before), turn.photos, began};
}

void WatchLoop::FinishEnded() {
  for (const ThumbRunner::Ended& ended : runner_.CollectEnded()) {
    if (ended.status != 0) console_.Fail(ended.directory, TextOfStatus(ended.status));
    const auto run = runs_.find(ended.directory);
    Finish(ended.directory, run->second);
    runs_.erase(run);
  }
}

void WatchLoop::Finish(const std::string& directory, const CurrentRun& run) {
  const DirectoryState after = scanner_.Scan(directory);
  const TurnEnd end = EndOf(run, after);
  RunResult result = Compare(run.before, after);
  result.troubles =
      troubles_.Update(directory, FindTroubles(after, end == TurnEnd::kFruitless), run.changed);
  if (console_.style().quiet) result.made = result.completed = 0;
  Print(TextOf(result));
  if (end == TurnEnd::kMoreLater)
    PrintVerbose(directory, "the rest will follow when there is time");
  if (end == TurnEnd::kComplete) TakeOutOfQueue(directory);
  scheduler_.Ended(directory, end, Clock::now());
}

TurnEnd WatchLoop::EndOf(const CurrentRun& run, const DirectoryState& after) const {
  if (after.IsFinished()) return TurnEnd::kComplete;
  if (IsProgress(run.before, after, run.began)) return TurnEnd::kMoreLater;
  return IsDirectoryLocked(after.path) ? TurnEnd::kLocked : TurnEnd::kFruitless;
}

void WatchLoop::TakeOutOfQueue(const std::string& directory) {
  // A user who may not write to the queue has not added anything to it.
  if (access(settings_.queue_path.c_str(), W_OK) != 0) return;
  if (!RemoveFromQueue(settings_.queue_path, {directory})) {
    console_.Fail(settings_.queue_path, "cannot remove what is done");
  }
}

void WatchLoop::Print(const std::string& line) {
  // Flushed, because somebody may be following the output.
  if (!line.empty()) console_.out() << line << std::endl;
}

void WatchLoop::PrintVerbose(const std::string& directory, const std::string& text) {
  if (console_.style().verbose) Print(ShownName(directory) + ": " + text);
}

void WatchLoop::OnPhoto(const std::string& directory, const std::string& photo) {
  scheduler_.Changed(directory, photo, Clock::now());
}

void WatchLoop::OnDirectory(const std::string& directory, bool is_new) {
  unreadable_.erase(directory);
  if (is_new) {
    scheduler_.Changed(directory, {}, Clock::now());
  } else {
    scheduler_.Look(directory, Clock::now());
  }
}

void WatchLoop::OnGone(const std::string& directory) {
  scheduler_.Forget(directory);
  troubles_.Forget(directory);
  unreadable_.erase(directory);
}

void WatchLoop::OnRootGone(const std::string& root) {
  console_.Fail(root, "is gone; checking for its return every " + SecondsText(settings_.rescan));
}

void WatchLoop::OnRootBack(const std::string& root) {
  if (!console_.style().quiet) Print(ShownName(root) + ": is back");
}

void WatchLoop::OnOverflow() {
  if (look_at_all_at_) return;
  look_at_all_at_ = Clock::now() + settings_.quiet;
  console_.Warn("more happened than the system could report; checking everything again");
}

void WatchLoop::OnShortage(int error) {
  console_.Warn(ShortageText(error) + ". Until then, folders without a watch are checked every " +
                SecondsText(settings_.rescan));
}

void WatchLoop::OnUnreadable(const std::string& directory, int error) {
  if (unreadable_.insert(directory).second) console_.Fail(directory, std::strerror(error));
}

}  // namespace keldo::ctl
