// Which directory has its turn, and when.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "util/deadline.h"

namespace keldo::ctl {

/// How patient the scheduler is. All follow from the quiet period.
struct SchedulerTimes {
  using Duration = Clock::duration;

  /// A directory has its turn when nothing happened in it for so long.
  Duration quiet;
  /// It has its turn at the latest so long after the first change: an upload may go on for hours.
  Duration longest_wait;
  /// What another run has locked is tried again after this.
  Duration lock_pause;
  /// Work for idle times does not wait longer than this for an idle time.
  Duration idle_patience;

  [[nodiscard]] static SchedulerTimes FromQuietPeriod(Duration quiet);
};

/// How a directory's turn ended.
enum class TurnEnd {
  kComplete,   ///< Nothing is missing that could be made.
  kMoreLater,  ///< The run brought something, and something is still missing: finish it when idle.
  kLocked,     ///< Another run works on the directory.
  kFruitless,  ///< Something is missing, and a run does not bring it.
};

/// Takes changes in, and says which directory is to be looked at and run. Knows no clock, no files
/// and no processes: the time is always given.
class ChangeScheduler {
 public:
  using TimePoint = Clock::time_point;

  /// A directory whose turn it is, and the photos in it that are known to have changed.
  struct Turn {
    std::string directory;
    std::set<std::string> photos;
    bool is_idle_work = false;
  };

  ChangeScheduler(SchedulerTimes times, int most_at_once);

  /// A photo came or changed; an empty name stands for a change of the directory as a whole.
  void Changed(const std::string& directory, const std::string& photo, TimePoint now);
  /// The directory is to be looked at without waiting for a quiet period.
  void Look(const std::string& directory, TimePoint now);
  /// Gives the directories another turn whose last turn was fruitless.
  void LookAtFruitless(TimePoint now);
  /// The directory is gone.
  void Forget(const std::string& directory);

  /// The next directory whose turn it is; nothing when none is due or as many have their turn as
  /// may. Has its turn from now on, until Ended is called.
  [[nodiscard]] std::optional<Turn> Next(TimePoint now);
  void Ended(const std::string& directory, TurnEnd end, TimePoint now);

  /// When Next will have something, if nothing happens until then.
  [[nodiscard]] std::optional<TimePoint> NextDue() const;

  /// The number of directories that are remembered for any reason.
  [[nodiscard]] std::size_t size() const { return entries_.size(); }

 private:
  // A change that waits for its directory's turn.
  struct Change {
    TimePoint first;
    TimePoint last;
    bool is_look = false;  ///< No event: due at once.
    std::set<std::string> photos;
  };
  struct Entry {
    std::optional<Change> change;
    std::optional<TimePoint> retry_at;
    std::optional<TimePoint> idle_since;
    bool fruitless = false;
    bool has_turn = false;
    bool is_idle_turn = false;
    bool forgotten = false;  ///< Went while it had its turn.
  };
  using Entries = std::map<std::string, Entry>;
  using Queue = std::set<std::pair<TimePoint, std::string>>;

  template <typename Action>
  void Edit(const std::string& directory, Action action);
  void Enter(const std::string& directory, const Entry& entry);
  void Leave(const std::string& directory, const Entry& entry);
  [[nodiscard]] std::optional<TimePoint> DueTime(const Entry& entry) const;
  [[nodiscard]] bool IsIdle() const { return changes_ == 0 && busy_turns_ == 0; }
  [[nodiscard]] Turn Begin(const std::string& directory, bool is_idle_work);

  SchedulerTimes times_;
  int most_at_once_;
  Entries entries_;
  Queue due_;   ///< Changes and retries, of directories that do not have their turn.
  Queue idle_;  ///< Work for idle times, likewise.
  int changes_ = 0;
  int turns_ = 0;
  int busy_turns_ = 0;  ///< Turns that are not idle work.
};

}  // namespace keldo::ctl
