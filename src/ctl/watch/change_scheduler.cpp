#include "ctl/watch/change_scheduler.h"

#include <algorithm>
#include <vector>

namespace keldo::ctl {
namespace {

constexpr int kQuietsOfLongestWait = 12;
constexpr int kQuietsOfLockPause = 6;
constexpr int kQuietsOfIdlePatience = 120;
constexpr std::chrono::seconds kLeastLockPause{1};
constexpr std::chrono::seconds kLeastIdlePatience{60};

}  // namespace

SchedulerTimes SchedulerTimes::FromQuietPeriod(Duration quiet) {
  return {quiet, quiet * kQuietsOfLongestWait,
          std::max<Duration>(quiet * kQuietsOfLockPause, kLeastLockPause),
          std::max<Duration>(quiet * kQuietsOfIdlePatience, kLeastIdlePatience)};
}

ChangeScheduler::ChangeScheduler(SchedulerTimes times, int most_at_once)
    : times_(times), most_at_once_(most_at_once) {}

void ChangeScheduler::Changed(const std::string& directory, const std::string& photo,
                              TimePoint now) {
  Edit(directory, [&](Entry& entry) {
    if (!entry.change || entry.change->is_look) entry.change = Change{now, now, false, {}};
    entry.change->last = now;
    if (!photo.empty()) entry.change->photos.insert(photo);
    entry.fruitless = false;
    entry.forgotten = false;
  });
}

void ChangeScheduler::Look(const std::string& directory, TimePoint now) {
  Edit(directory, [&](Entry& entry) {
    // A change that waits for its quiet period covers this.
    if (!entry.change) entry.change = Change{now, now, true, {}};
    entry.fruitless = false;
    entry.forgotten = false;
  });
}

void ChangeScheduler::LookAtFruitless(TimePoint now) {
  std::vector<std::string> directories;
  for (const auto& [directory, entry] : entries_) {
    if (entry.fruitless) directories.push_back(directory);
  }
  for (const std::string& directory : directories)
    Look(directory, now);
}

void ChangeScheduler::Forget(const std::string& directory) {
  if (entries_.find(directory) == entries_.end()) return;
  Edit(directory, [](Entry& entry) {
    Entry kept;
    kept.has_turn = entry.has_turn;
    kept.is_idle_turn = entry.is_idle_turn;
    kept.forgotten = true;
    entry = kept;
  });
}

std::optional<ChangeScheduler::Turn> ChangeScheduler::Next(TimePoint now) {
  if (turns_ >= most_at_once_) return std::nullopt;
  if (!due_.empty() && due_.begin()->first <= now) {
    return Begin(std::string(due_.begin()->second), false);
  }
  if (idle_.empty()) return std::nullopt;
  const auto& [since, directory] = *idle_.begin();
  if (!IsIdle() && now < since + times_.idle_patience) return std::nullopt;
  return Begin(std::string(directory), true);
}

ChangeScheduler::Turn ChangeScheduler::Begin(const std::string& directory, bool is_idle_work) {
  Turn turn{directory, {}, is_idle_work};
  Edit(directory, [&](Entry& entry) {
    if (entry.change) turn.photos = std::move(entry.change->photos);
    entry = Entry{};
    entry.has_turn = true;
    entry.is_idle_turn = is_idle_work;
  });
  return turn;
}

void ChangeScheduler::Ended(const std::string& directory, TurnEnd end, TimePoint now) {
  Edit(directory, [&](Entry& entry) {
    entry.has_turn = false;
    entry.is_idle_turn = false;
    if (entry.forgotten) return;
    if (end == TurnEnd::kMoreLater) entry.idle_since = now;
    if (end == TurnEnd::kLocked) entry.retry_at = now + times_.lock_pause;
    entry.fruitless = end == TurnEnd::kFruitless && !entry.change;
  });
}

std::optional<ChangeScheduler::TimePoint> ChangeScheduler::NextDue() const {
  if (turns_ >= most_at_once_) return std::nullopt;
  std::optional<TimePoint> due;
  if (!due_.empty()) due = due_.begin()->first;
  if (idle_.empty()) return due;
  const TimePoint since = idle_.begin()->first;
  const TimePoint idle_due = IsIdle() ? since : since + times_.idle_patience;
  return due ? std::min(*due, idle_due) : idle_due;
}

// Changes an entry and updates the queues and counts. Entries that hold nothing any more are
// forgotten.
template <typename Action>
void ChangeScheduler::Edit(const std::string& directory, Action action) {
  const auto [at, added] = entries_.try_emplace(directory);
  Entry& entry = at->second;
  Leave(directory, entry);
  action(entry);
  Enter(directory, entry);
  const bool holds_something =
      entry.change || entry.retry_at || entry.idle_since || entry.fruitless || entry.has_turn;
  if (!holds_something) entries_.erase(at);
}

void ChangeScheduler::Enter(const std::string& directory, const Entry& entry) {
  if (entry.change) ++changes_;
  if (entry.has_turn) {
    ++turns_;
    if (!entry.is_idle_turn) ++busy_turns_;
    return;
  }
  if (const auto due = DueTime(entry)) due_.emplace(*due, directory);
  if (entry.idle_since) idle_.emplace(*entry.idle_since, directory);
}

void ChangeScheduler::Leave(const std::string& directory, const Entry& entry) {
  if (entry.change) --changes_;
  if (entry.has_turn) {
    --turns_;
    if (!entry.is_idle_turn) --busy_turns_;
    return;
  }
  if (const auto due = DueTime(entry)) due_.erase({*due, directory});
  if (entry.idle_since) idle_.erase({*entry.idle_since, directory});
}

std::optional<ChangeScheduler::TimePoint> ChangeScheduler::DueTime(const Entry& entry) const {
  std::optional<TimePoint> due = entry.retry_at;
  if (!entry.change) return due;
  const Change& change = *entry.change;
  const TimePoint changed_due =
      change.is_look ? change.first
                     : std::min(change.last + times_.quiet, change.first + times_.longest_wait);
  // A change does not release the lock that another run holds.
  return due ? std::max(*due, changed_due) : changed_due;
}

}  // namespace keldo::ctl
