// Making the thumbnails of many directories with several keldothumb processes at once.
#pragma once

#include <chrono>
#include <ctime>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "ctl/library/photo_scan.h"
#include "ctl/library/thumb_runner.h"

namespace keldo::ctl {

struct MakeOptions {
  std::string keldothumb;      ///< The program.
  std::string profile_path;    ///< Its profile file.
  int jobs = 1;                ///< Processors to use, at least 1.
  bool nice = false;           ///< Lowest processor and disk priority.
  bool show_messages = false;  ///< Pass on what the programs write to standard error.
  /// How long to wait before trying again a directory that another run is working on.
  std::chrono::milliseconds locked_again_after{2000};
};

/// The progress of a run.
struct MakeProgress {
  int photos_total = 0;   ///< Photos that lacked thumbnails at the start.
  int photos_done = 0;    ///< Of these, complete now.
  int photos_failed = 0;  ///< Of these, failed in this run.
  int thumbs_total = 0;   ///< Thumbnails that were missing at the start.
  int thumbs_made = 0;
  int folders_locked = 0;  ///< Waiting for another run to finish.
  std::chrono::steady_clock::duration elapsed{};
};

/// A process that ended abnormally.
struct RunTrouble {
  std::string directory;
  std::string text;  ///< "keldothumb was killed by signal 11 (Segmentation fault)".
};

/// How a run ended.
struct MakeOutcome {
  MakeProgress progress;
  /// Directories in the order in which they were given, as they are now.
  std::vector<DirectoryState> directories;
  std::vector<RunTrouble> troubles;  ///< In the order in which they occurred.
  bool stopped = false;              ///< By the stop descriptor.
  std::string problem;               ///< Why no process could be started; empty when all could.
};

/// Runs the program over directories until everything that can be made is there. A directory is run
/// again until a run makes nothing new, which also finishes deferred phases. Directories that
/// another run has locked are tried again later. Directories with the most work come first.
/// Directories where everything that is missing has failed before are skipped.
class Maker {
 public:
  using Report = std::function<void(const MakeProgress&)>;

  /// `stop_fd` becomes readable when the run has to stop; -1 for never. `report` is called about
  /// twice a second during the run.
  Maker(MakeOptions options, PhotoScanner& scanner, int stop_fd, Report report);

  /// Works on the directories, which have just been scanned.
  [[nodiscard]] MakeOutcome Run(std::vector<DirectoryState> directories);

 private:
  struct Folder {
    DirectoryState state;
    LibraryCounts at_start;
    int present_before_run = 0;
    int failed_before_run = 0;
    Clock::time_point not_before{};
  };

  void Add(std::vector<DirectoryState> directories);
  void StartWhatCanRun();
  void ShareProcessors() const;
  void Start(std::size_t folder);
  void WaitForEvents();
  void FinishEnded();
  void FinishRun(std::size_t folder);
  void Refresh();
  void Scan(const std::vector<std::string>& directories);
  [[nodiscard]] MakeProgress Progress() const;

  MakeOptions options_;
  PhotoScanner& scanner_;
  int stop_fd_;
  Report report_;
  std::vector<Folder> folders_;
  std::deque<std::size_t> waiting_;
  ThumbRunner runner_;
  std::map<std::string, std::size_t> folder_of_;  ///< By its path.
  Clock::time_point begin_;
  time_t begin_time_;  ///< The same in seconds since 1970.
  Clock::time_point next_refresh_;
  bool stopped_ = false;
  std::string problem_;
  std::vector<RunTrouble> troubles_;
};

}  // namespace keldo::ctl
