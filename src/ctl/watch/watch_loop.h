// The main loop of keldothumbctl watch.
#pragma once

#include <chrono>
#include <ctime>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "ctl/console.h"
#include "ctl/library/photo_scan.h"
#include "ctl/library/thumb_runner.h"
#include "ctl/watch/change_scheduler.h"
#include "ctl/watch/directory_tree.h"
#include "ctl/watch/watch_report.h"

namespace keldo::ctl {

struct WatchSettings {
  std::vector<std::string> roots;  ///< Absolute, without a trailing slash.
  Clock::duration quiet = std::chrono::seconds(5);
  Clock::duration rescan = std::chrono::minutes(10);
  int jobs = 1;
  std::string keldothumb;    ///< The program.
  std::string profile_path;  ///< Its profile file.
  std::string queue_path;    ///< The work queue, to which the program adds unfinished directories.
};

/// Watches trees and runs keldothumb where photos lack thumbnails, until stopped.
class WatchLoop : private TreeListener {
 public:
  /// `stop_fd` becomes readable when the watch has to end.
  WatchLoop(WatchSettings settings, Inotify& inotify, Console& console, int stop_fd);
  ~WatchLoop() override = default;
  WatchLoop(const WatchLoop&) = delete;
  WatchLoop& operator=(const WatchLoop&) = delete;

  void Run();

 private:
  // A run in progress.
  struct CurrentRun {
    DirectoryState before;
    std::set<std::string> changed;
    time_t began;
  };

  void OnPhoto(const std::string& directory, const std::string& photo) override;
  void OnDirectory(const std::string& directory, bool is_new) override;
  void OnGone(const std::string& directory) override;
  void OnRootGone(const std::string& root) override;
  void OnRootBack(const std::string& root) override;
  void OnOverflow() override;
  void OnShortage(int error) override;
  void OnUnreadable(const std::string& directory, int error) override;

  [[nodiscard]] bool WaitForWork() const;
  [[nodiscard]] Clock::time_point NextWork() const;
  void DoWork();
  void WalkOn();
  void LookAgain();
  void FinishEnded();
  void Finish(const std::string& directory, const CurrentRun& run);
  [[nodiscard]] TurnEnd EndOf(const CurrentRun& run, const DirectoryState& after) const;
  void StartWhatIsDue();
  void Begin(const ChangeScheduler::Turn& turn);
  void TakeOutOfQueue(const std::string& directory);
  void Print(const std::string& line);
  void PrintVerbose(const std::string& directory, const std::string& text);

  WatchSettings settings_;
  Console& console_;
  int stop_fd_;
  Inotify& inotify_;
  DirectoryTree tree_;
  ChangeScheduler scheduler_;
  PhotoScanner scanner_;
  ThumbRunner runner_;
  TroubleMemory troubles_;
  std::map<std::string, CurrentRun> runs_;
  std::set<std::string> unreadable_;  ///< Directories already reported.
  Clock::time_point next_rescan_;
  std::optional<Clock::time_point> look_at_all_at_;
  int start_error_ = 0;  ///< Why the last run could not be started.
  bool has_begun_ = false;
};

}  // namespace keldo::ctl
