// keldothumbctl watch: keep thumbnails up to date.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "ctl/commands/command.h"
#include "ctl/library/thumb_runner.h"
#include "ctl/watch/directory_tree.h"
#include "ctl/watch/watch_loop.h"
#include "process/startup.h"
#include "thumbs/directories.h"
#include "thumbs/paths.h"

namespace keldo::ctl {
namespace {

constexpr const char* kDescription =
    "Keep thumbnails up to date while photos come, change and go, until stopped";

constexpr const char* kNotes =
    "A folder is processed when nothing has happened in it for the quiet period, or after twelve\n"
    "quiet periods at the latest. Kinds that the profile file defers are made when there is "
    "nothing\n"
    "else to do. A photo that failed is tried again when it changes; 'retry' tries it at once. "
    "The\n"
    "thumbnails of deleted photos stay; 'clean' removes them. For a large library, run 'make' "
    "first:\n"
    "it is faster. Ctrl-C or SIGTERM stops the watch, with exit status 0.\n"
    "\n"
    "Examples:\n"
    "  keldothumbctl watch --nice ~/Pictures\n"
    "  keldothumbctl watch -j 4 --quiet-period 0.5 /volume1/photo /volume2/photo\n";

constexpr double kDefaultQuiet = 5;
constexpr double kDefaultRescan = 600;

struct Request {
  std::vector<std::string> directories;
  double quiet_period = kDefaultQuiet;
  double rescan = kDefaultRescan;
  MakeSettings make;
};

Clock::duration Seconds(double seconds) {
  return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

// The trees that get thumbnails, each once. The others are reported on the error stream.
std::vector<std::string> UsableRoots(const Request& request, Console& console) {
  std::vector<std::string> roots = CheckedDirectories(request.directories);
  std::sort(roots.begin(), roots.end());
  roots.erase(std::unique(roots.begin(), roots.end()), roots.end());
  std::erase_if(roots, [&console](const std::string& root) {
    if (!IsFileSystemRejected(root)) return false;
    console.Fail(root, "is on a network share or a disk image, where no thumbnails are made");
    return true;
  });
  return roots;
}

int RunWatch(const Request& request, CommandContext& context) {
  Console& console = context.console;
  const MakeOptions options = OptionsFrom(request.make, context);
  WatchSettings settings;
  settings.roots = UsableRoots(request, console);
  settings.quiet = Seconds(request.quiet_period);
  settings.rescan = Seconds(request.rescan);
  settings.jobs = options.jobs;
  settings.keldothumb = options.keldothumb;
  settings.profile_path = options.profile_path;
  settings.queue_path = paths::kThumbQueue;
  if (settings.roots.empty()) return kSomeFailed;
  if (::access(settings.keldothumb.c_str(), X_OK) != 0) {
    return console.Fail(settings.keldothumb, std::strerror(errno));
  }

  if (options.nice) YieldToOthers(0);
  // Each run's converter gets one processor; -j limits the number of runs.
  setenv("MAGICK_THREAD_LIMIT", "1", 1);
  setenv("OMP_NUM_THREADS", "1", 1);
  const process::StopSignals signals;
  Inotify inotify;
  WatchLoop(settings, inotify, console, signals.fd()).Run();
  return kAllWell;
}

void AddOptions(CLI::App& watch, Request& request) {
  AddSeconds(watch, "--quiet-period", request.quiet_period,
             "How long a folder must be quiet before it is processed; default: 5", 0);
  AddSeconds(watch, "--rescan", request.rescan,
             "How often to check what cannot be watched or did not succeed; default: 600", 1);
  AddRunOptions(watch, request.make, "Processors to use; default: 1");
}

}  // namespace

void AddWatchCommand(CLI::App& app, CommandContext& context) {
  const auto request = std::make_shared<Request>();
  request->make.jobs = 1;
  CLI::App* watch = AddCommand(app, context, "watch", kDescription);
  AddOptions(*watch, *request);
  AddDirectoriesArgument(*watch, request->directories);
  SetFooter(*watch, kNotes);
  OnRun(*watch, context, [&context, request] { return RunWatch(*request, context); });
}

}  // namespace keldo::ctl
