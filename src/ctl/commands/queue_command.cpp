// keldothumbctl queue: show the work queue, and do the work in it.
#include <json/value.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "ctl/commands/command.h"
#include "ctl/library/work_queue_file.h"
#include "ctl/make/make_report.h"
#include "process/startup.h"
#include "thumbs/tree_walk.h"
#include "thumbs/work_queue.h"
#include "util/path.h"

namespace keldo::ctl {
namespace {

constexpr const char* kRunExamples =
    "The queue holds directories with deferred work. A directory leaves the queue when its work "
    "is\n"
    "done; directories that were not reached stay.\n"
    "\n"
    "Examples:\n"
    "  keldothumbctl queue list             what is waiting\n"
    "  keldothumbctl queue run --nice       do the work at low priority\n";

Json::Value JsonListOf(const std::vector<std::string>& entries) {
  Json::Value list(Json::arrayValue);
  for (const std::string& entry : entries)
    list.append(JsonPath(entry));
  return list;
}

void PrintEntries(Console& console, const char* state, const std::vector<std::string>& entries) {
  for (const std::string& entry : entries)
    console.out() << state << ShownName(entry) << "\n";
}

int ListQueue(const QueuePaths& paths, bool json, Console& console) {
  const std::optional<std::vector<std::string>> in_work = ReadQueue(paths.in_work);
  if (!in_work) return console.Fail(paths.in_work, std::strerror(errno));
  const std::optional<std::vector<std::string>> waiting = ReadQueue(paths.waiting);
  if (!waiting) return console.Fail(paths.waiting, std::strerror(errno));
  if (json) {
    Json::Value value(Json::objectValue);
    value["in_work"] = JsonListOf(*in_work);
    value["waiting"] = JsonListOf(*waiting);
    console.PrintJson(value);
    return kAllWell;
  }
  PrintEntries(console, "in work  ", *in_work);
  PrintEntries(console, "waiting  ", *waiting);
  if (in_work->empty() && waiting->empty() && !console.style().quiet) {
    console.out() << "The queue is empty.\n";
  }
  return kAllWell;
}

constexpr std::chrono::seconds kSweepEvery{2};
// Checking which directories are complete may take at most 1/kSweepShare of the time.
constexpr int kSweepShare = 20;

enum class Place { kDirectory, kNoDirectory, kUnknown };

// What an entry's path is; `problem` says why it is not a directory, or why that is unknown.
Place LookAt(const std::string& path, std::string& problem) {
  struct stat status {};
  if (!path.starts_with('/')) {
    problem = "not an absolute path";
    return Place::kNoDirectory;
  }
  if (::stat(path.c_str(), &status) != 0) {
    problem = std::strerror(errno);
    return errno == ENOENT || errno == ENOTDIR ? Place::kNoDirectory : Place::kUnknown;
  }
  problem = "not a directory";
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
    // Signals are held from the first to the last change of the queue.
    const process::StopSignals signals;
    if (!work_.Lock()) {
      return work_.is_busy() ? console_.Fail(paths_.waiting, "another run is working on it")
                             : PrintProblem();
    }
    if (!work_.Claim()) return PrintProblem();
    if (work_.entries().empty() && !json) {
      if (!console_.style().quiet) console_.out() << "The queue is empty.\n";
      return work_.Return() ? kAllWell : PrintProblem();
    }
    std::vector<DirectoryState> directories = FindWork();
    FinishComplete(directories);
    const MakeOutcome outcome = Make(std::move(directories), signals.fd());
    FinishComplete(outcome.directories);
    RemoveRequeued();
    if (!work_.Return()) PrintProblem();
    const int status = ReportOutcome(console_, outcome, json);
    return failed_ || !outcome.problem.empty() ? kSomeFailed : status;
  }

 private:
  int PrintProblem() {
    failed_ = true;
    return console_.Fail(work_.problem_path(), work_.problem());
  }

  // Scans the directories that the entries name, and drops entries that name none.
  std::vector<DirectoryState> FindWork() {
    std::set<std::string> dropped;
    for (const std::string& entry : work_.entries()) {
      if (!Expand(entry)) dropped.insert(entry);
    }
    if (!work_.Finish(dropped)) PrintProblem();
    std::vector<DirectoryState> directories;
    for (const std::string& path : order_)
      directories.push_back(scanner_.Scan(path));
    return directories;
  }

  // Records the directories of an entry. False when the entry has to be dropped.
  bool Expand(const std::string& entry) {
    const auto [is_tree, path] = ParseQueueLine(entry);
    std::string problem;
    const Place place = LookAt(path, problem);
    if (place == Place::kNoDirectory) {
      console_.Warn(ShownName(entry) + ": " + problem + "; removed from the queue");
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

  // The entry stays in the queue, because not all of it can be reached.
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

  // Removes what has become complete, for anybody who looks at the queue meanwhile.
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

  // A directory is done when each photo has its thumbnails or has failed.
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
    if (!work_.Finish(done)) PrintProblem();
    for (const std::string& entry : done)
      wanted_.erase(entry);
  }

  // keldothumb queued its directories again before their last thumbnails were made. A photo may
  // have been added meanwhile, so each is scanned once more before it is removed.
  void RemoveRequeued() {
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
  QueueClaim work_;
  std::vector<std::string> order_;  ///< The directories, in the order of the entries.
  std::set<std::string> known_;
  std::map<std::string, std::set<std::string>> wanted_;  ///< The directories of each entry left.
  std::set<std::string> complete_;
  Clock::time_point next_sweep_ = Clock::now() + kSweepEvery;
  bool failed_ = false;
};

int RunQueue(const MakeSettings& settings, const CommandContext& context) {
  return QueueRun(context.environment.queue, OptionsFrom(settings, context), context.console)
      .Run(settings.json);
}

}  // namespace

void AddQueueCommand(CLI::App& app, CommandContext& context) {
  CLI::App& queue = AddGroup(app, "queue", "Directories with deferred work");

  const auto json = std::make_shared<bool>(false);
  CLI::App* list =
      AddCommand(queue, context, "list", "List the entries that are waiting or in work");
  AddJsonOption(*list, *json);
  OnRun(*list, context,
        [&context, json] { return ListQueue(context.environment.queue, *json, context.console); });

  const auto settings = std::make_shared<MakeSettings>();
  CLI::App* run = AddCommand(queue, context, "run", "Do the waiting work");
  AddMakeOptions(*run, *settings);
  SetFooter(*run, kRunExamples);
  OnRun(*run, context, [&context, settings] { return RunQueue(*settings, context); });
}

}  // namespace keldo::ctl
