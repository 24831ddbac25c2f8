// Which directory is processed, and when.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "util/deadline.h"

namespace keldo::ctl {

/// How long the scheduler waits. Everything follows from the quiet period.
struct SchedulerTimes {
  using Duration = Clock::duration;

  /// A directory is due when nothing has happened in it for this long.
  Duration quiet;
  /// It is due at the latest this long after the first change: an upload may go on for hours.
  Duration longest_wait;
  /// How long to wait before trying again what another run has locked.
  Duration lock_pause;
  /// How long idle work waits at most for an idle time.
  Duration idle_patience;

  [[nodiscard]] static SchedulerTimes FromQuietPeriod(Duration quiet);
};

/// How a directory's turn ended.
enum class TurnEnd {
  kComplete,   ///< Everything that can be made is there.
  kMoreLater,  ///< The run made progress, but something is still missing: finish it when idle.
  kLocked,     ///< Another run is working on the directory.
  kFruitless,  ///< Something is missing, but a run does not help.
};

/// Collects changes and decides which directory is due. Knows nothing of clocks, files and
/// processes: the caller passes the time.
class ChangeScheduler {
 public:
  using TimePoint = Clock::time_point;

  /// A directory that is due, and the photos in it that are known to have changed.
  struct Turn {
    std::string directory;
    std::set<std::string> photos;
    bool is_idle_work = false;
  };

  ChangeScheduler(SchedulerTimes times, int most_at_once);

  /// A photo was added or changed; an empty name stands for the directory as a whole.
  void Changed(const std::string& directory, const std::string& photo, TimePoint now);
  /// The directory is due at once, without a quiet period.
  void Look(const std::string& directory, TimePoint now);
  /// Makes the directories due whose last turn was fruitless.
  void LookAtFruitless(TimePoint now);
  /// The directory is gone.
  void Forget(const std::string& directory);

  /// The next directory that is due; nothing if none is, or if as many as allowed have their turn.
  /// Its turn lasts until Ended is called.
  [[nodiscard]] std::optional<Turn> Next(TimePoint now);
  void Ended(const std::string& directory, TurnEnd end, TimePoint now);

  /// When Next will return something if nothing happens until then.
  [[nodiscard]] std::optional<TimePoint> NextDue() const;

  /// The number of directories remembered for any reason.
  [[nodiscard]] std::size_t size() const { return entries_.size(); }

 private:
  // A change that waits for its directory's turn.
  struct Change {
    TimePoint first;
    TimePoint last;
    bool is_look = false;  ///< Not an event: due at once.
    std::set<std::string> photos;
  };
  struct Entry {
    std::optional<Change> change;
    std::optional<TimePoint> retry_at;
    std::optional<TimePoint> idle_since;
    bool fruitless = false;
    bool has_turn = false;
    bool is_idle_turn = false;
    bool forgotten = false;  ///< Disappeared during its turn.
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
  Queue due_;   ///< Changes and retries of directories that are not having their turn.
  Queue idle_;  ///< Idle work, likewise.
  int changes_ = 0;
  int turns_ = 0;
  int busy_turns_ = 0;  ///< Turns that are not idle work.
};

}  // namespace keldo::ctl
