#include "ctl/make/make_options.h"

#include <sched.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <set>
#include <utility>

#include "ctl/commands/work_queue_file.h"
#include "ctl/make/make_report.h"
#include "process/stop_signals.h"
#include "thumbs/paths.h"

namespace keldo::ctl {
namespace {

constexpr int kMostJobs = 1024;

// keldothumb has asked for the directories to come back to while their last thumbnails were still
// to be made. Each is looked at once more, for a photo that came meanwhile, and for kinds that the
// index wants but this run was not told to make.
void TakeOutOfQueue(const MakeOutcome& outcome, Console& console) {
  // A user who may not write the queue has put nothing into it.
  if (::access(paths::kThumbQueue, W_OK) != 0) return;
  PhotoScanner scanner;
  std::set<std::string> worked_on;
  for (const DirectoryState& directory : outcome.directories)
    worked_on.insert(directory.path);
  const auto is_done = [&](const std::string& line) {
    return worked_on.contains(line) && scanner.Scan(line).IsFinished();
  };
  if (!RemoveFromQueueIf(paths::kThumbQueue, is_done)) {
    console.Fail(paths::kThumbQueue, std::strerror(errno));
  }
}

}  // namespace

void AddMakeOptions(CLI::App& command, MakeSettings& settings) {
  command.add_option("-j,--jobs", settings.jobs, "Processors to use; all of them otherwise")
      ->type_name("N")
      ->check(CLI::Range(1, kMostJobs));
  AddProfileOption(command, settings.profile);
  command.add_flag("--nice", settings.nice, "Yield processors and disks to everything else");
  command.add_flag("--json", settings.json, "Print the summary as one JSON object");
}

int ProcessorCount() {
  cpu_set_t processors;
  CPU_ZERO(&processors);
  if (sched_getaffinity(0, sizeof processors, &processors) != 0) return 1;
  return std::max(1, CPU_COUNT(&processors));
}

MakeOptions OptionsFrom(const MakeSettings& settings, const CommandContext& context) {
  const std::optional<std::string> profile = ProfileToUse(settings.profile, context.environment);
  if (!profile) {
    throw UsageError{ShownName(context.environment.profile_path) +
                     ": there is no profile file; name one with --profile"};
  }
  MakeOptions options;
  options.keldothumb = context.environment.keldothumb;
  options.profile_path = *profile;
  options.jobs = settings.jobs > 0 ? settings.jobs : ProcessorCount();
  options.nice = settings.nice;
  options.show_messages = context.verbose;
  return options;
}

MakeOutcome MakeWithProgress(const MakeOptions& options, PhotoScanner& scanner,
                             std::vector<DirectoryState> directories, Console& console) {
  const process::StopSignals signals;
  ProgressLine line(console);
  Maker maker(options, scanner, signals.fd(),
              [&line](const MakeProgress& progress) { line.Show(progress); });
  MakeOutcome outcome = maker.Run(std::move(directories));
  line.Clear();
  TakeOutOfQueue(outcome, console);
  return outcome;
}

}  // namespace keldo::ctl
