// What the commands that make thumbnails have in common.
#pragma once

#include <string>
#include <vector>

#include "ctl/commands/command.h"
#include "ctl/make/maker.h"

namespace keldo::ctl {

/// The options -j, --profile, --nice and --json as given.
struct MakeSettings {
  int jobs = 0;  ///< 0: as many as there are processors.
  std::string profile;
  bool nice = false;
  bool json = false;
};

void AddMakeOptions(CLI::App& command, MakeSettings& settings);

/// The number of processors that this process may use.
[[nodiscard]] int ProcessorCount();

/// Throws UsageError when there is no usable profile file.
[[nodiscard]] MakeOptions OptionsFrom(const MakeSettings& settings, const CommandContext& context);

/// Runs a Maker that shows its progress on the console and stops on Ctrl-C, SIGTERM or SIGHUP; then
/// takes the directories that are complete out of the work queue, which asks for what is done now.
[[nodiscard]] MakeOutcome MakeWithProgress(const MakeOptions& options, PhotoScanner& scanner,
                                           std::vector<DirectoryState> directories,
                                           Console& console);

}  // namespace keldo::ctl
