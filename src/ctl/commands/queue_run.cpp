// keldothumbctl queue run: working the queue off.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <map>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "ctl/commands/queue_commands.h"
#include "ctl/commands/work_queue_file.h"
#include "ctl/make/make_report.h"
#include "process/startup.h"
#include "thumbs/tree_walk.h"
#include "thumbs/work_queue.h"
#include "util/path.h"

namespace keldo::ctl {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kSweepEvery{2};
// Looking which directories are complete may take this part of the time at most.
constexpr int kSweepShare = 20;

enum class Place { kDirectory, kNoDirectory, kUnknown };

// What an entry's path is; `problem` tells why it is no directory, or why that is unknown.
Place LookAt(const std::string& path, std::string& problem) {
  struct stat status {};
  if (!path.starts_with('/')) {
    problem = "is no path from the root";
    return Place::kNoDirectory;
  }
  if (::stat(path.c_str(), &status) != 0) {
    problem = std::strerror(errno);
    return errno == ENOENT || errno == ENOTDIR ? Place::kNoDirectory : Place::kUnknown;
  }
  problem = "is no directory";
  if (!S_ISDIR(status.st_mode)) return Place::kNoDirectory;
  if (::access(path.c_str(), R_OK | X_OK) == 0) return Place::kDirectory;
  problem = std::strerror(errno);
  return Place::kUnknown;
}

class QueueRun {
 public:
  QueueRun(QueuePaths paths, MakeOptions options, Console& console)
      : paths_(std::move(paths)),
        options_(std::move(options)),
        console_(console),
        scanner_(options_.profile_path),
        work_(paths_) {}

  int Run(bool json) {
    // From the first to the last change of the queue.
    const process::StopSignals signals;
    if (!work_.KeepOthersOut()) {
      return work_.is_busy() ? console_.Fail(paths_.waiting, "another run is working on it")
                             : Problem();
    }
    if (!work_.Take()) return Problem();
    if (work_.entries().empty() && !json) {
      if (!console_.style().quiet) console_.out() << "The queue is empty.\n";
      return work_.GiveBack() ? kAllWell : Problem();
    }
    std::vector<DirectoryState> directories = FindWork();
    FinishComplete(directories);
    const MakeOutcome outcome = Make(std::move(directories), signals.fd());
    FinishComplete(outcome.directories);
    TakeOutRequeued();
    if (!work_.GiveBack()) Problem();
    const int status = ReportOutcome(console_, outcome, json);
    return failed_ || !outcome.problem.empty() ? kSomeFailed : status;
  }

 private:
  int Problem() {
    failed_ = true;
    return console_.Fail(work_.problem_path(), work_.problem());
  }

  // Looks at every directory that the entries ask for; drops entries that ask for none.
  std::vector<DirectoryState> FindWork() {
    std::set<std::string> dropped;
    for (const std::string& entry : work_.entries()) {
      if (!Expand(entry)) dropped.insert(entry);
    }
    if (!work_.Finish(dropped)) Problem();
    std::vector<DirectoryState> directories;
    for (const std::string& path : order_)
      directories.push_back(scanner_.Scan(path));
    return directories;
  }

  // Notes the directories of an entry. False when the entry is to be dropped.
  bool Expand(const std::string& entry) {
    const auto [is_tree, path] = ParseQueueLine(entry);
    std::string problem;
    const Place place = LookAt(path, problem);
    if (place == Place::kNoDirectory) {
      console_.Warn(ShownName(entry) + ": " + problem + "; taken out of the queue");
      return false;
    }
    if (place == Place::kUnknown) {
      Keep(entry, path, problem);
    } else if (is_tree) {
      WalkDirectories(PathKey(path), {[&](const std::string& directory) { Want(entry, directory); },
                                      [&](const std::string& directory, int error) {
                                        Keep(entry, directory, std::strerror(error));
                                      }});
    } else {
      Want(entry, PathKey(path));
    }
    return true;
  }

  void Want(const std::string& entry, const std::string& directory) {
    wanted_[entry].insert(directory);
    if (known_.insert(directory).second) order_.push_back(directory);
  }

  // The entry stays in the queue, since not all of it can be reached.
  void Keep(const std::string& entry, const std::string& path, const std::string& problem) {
    failed_ = true;
    console_.Fail(path, problem);
    wanted_[entry].insert("");
  }

  MakeOutcome Make(std::vector<DirectoryState> directories, int stop_fd) {
    ProgressLine line(console_);
    Maker maker(options_, scanner_, stop_fd, [&](const MakeProgress& progress) {
      line.Show(progress);
      if (Clock::now() >= next_sweep_) Sweep();
    });
    MakeOutcome outcome = maker.Run(std::move(directories));
    line.Clear();
    return outcome;
  }

  // Takes out what has become complete, for those who look at the queue meanwhile.
  void Sweep() {
    const Clock::time_point begin = Clock::now();
    std::vector<DirectoryState> now;
    for (const std::string& directory : order_) {
      if (!complete_.contains(directory)) now.push_back(scanner_.Scan(directory));
    }
    FinishComplete(now);
    const Clock::time_point end = Clock::now();
    next_sweep_ = end + std::max<Clock::duration>(kSweepEvery, kSweepShare * (end - begin));
  }

  // A directory is done when no photo of it lacks a thumbnail other than by failure.
  void FinishComplete(const std::vector<DirectoryState>& directories) {
    for (const DirectoryState& directory : directories) {
      if (directory.IsFinished()) complete_.insert(directory.path);
    }
    std::set<std::string> done;
    for (const auto& [entry, wanted] : wanted_) {
      if (!std::includes(complete_.begin(), complete_.end(), wanted.begin(), wanted.end()))
        continue;
      done.insert(entry);
    }
    if (done.empty()) return;
    if (!work_.Finish(done)) Problem();
    for (const std::string& entry : done)
      wanted_.erase(entry);
  }

  // The program has put its directories into the queue again while their last thumbnails were still
  // to be made. Who has done so for a photo that came meanwhile is not to be disappointed: what is
  // taken out is looked at once more.
  void TakeOutRequeued() {
    const auto is_done = [this](const std::string& line) {
      return known_.contains(line) && scanner_.Scan(line).IsFinished();
    };
    if (RemoveFromQueueIf(paths_.waiting, is_done)) return;
    failed_ = true;
    console_.Fail(paths_.waiting, std::strerror(errno));
  }

  QueuePaths paths_;
  MakeOptions options_;
  Console& console_;
  PhotoScanner scanner_;
  WorkInHand work_;
  std::vector<std::string> order_;  ///< The directories, in the order of the entries.
  std::set<std::string> known_;
  std::map<std::string, std::set<std::string>> wanted_;  ///< The directories of each entry left.
  std::set<std::string> complete_;
  Clock::time_point next_sweep_ = Clock::now() + kSweepEvery;
  bool failed_ = false;
};

}  // namespace

int RunQueue(const QueuePaths& paths, const MakeSettings& settings, const CommandContext& context) {
  return QueueRun(paths, OptionsFrom(settings, context), context.console).Run(settings.json);
}

}  // namespace keldo::ctl
