// What every command of keldothumbctl is given, and how it joins the command line.
#pragma once

#include <functional>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "ctl/console.h"

namespace CLI {
class App;
}

namespace keldo::ctl {

/// Where the programs and files are that the commands work with.
struct Environment {
  std::string database_path;      ///< The embedded index.
  std::string keldothumb;         ///< The program that makes thumbnails.
  std::string profile_path;       ///< The profile file where none is named.
  bool terminal_out = false;      ///< Standard output is a terminal.
  bool terminal_err = false;      ///< Standard error is a terminal.
  bool colour_forbidden = false;  ///< NO_COLOR is set.
};

/// The environment of this process.
[[nodiscard]] Environment EnvironmentOfProcess();

/// What is shared by the commands while one command line is carried out.
struct CommandContext {
  Console& console;
  const Environment& environment;
  int status = 0;  ///< The exit status, set by the command that ran.
  // Options of every command.
  bool quiet = false;
  bool verbose = false;
  std::string colour = "auto";
};

inline constexpr int kAllWell = 0;
inline constexpr int kSomeFailed = 1;
inline constexpr int kUsage = 2;

/// A usage error found after parsing: RunCommandLine prints the text and exits with kUsage.
struct UsageError {
  std::string text;
};

/// Adds a command with the options that all have (--quiet, --verbose, --color). `run` is called
/// when the command line names the command, and returns the exit status. It may throw UsageError.
CLI::App* AddCommand(CLI::App& parent, CommandContext& context, const std::string& name,
                     const std::string& description);
void OnRun(CLI::App& command, CommandContext& context, std::function<int()> run);

/// Adds "--profile FILE".
void AddProfileOption(CLI::App& command, std::string& profile);

/// The profile file to use: the one named, else the installed one; nothing when none was named and
/// none is installed. Throws UsageError when it cannot be used.
[[nodiscard]] std::optional<std::string> ProfileToUse(const std::string& named,
                                                      const Environment& environment);

/// Adds the positional "DIR...", of which at least one must be given.
void AddDirectoriesArgument(CLI::App& command, std::vector<std::string>& directories);

/// The directories as the commands work on them: absolute, without "//", "." or a slash at the end;
/// links are kept. Throws UsageError for one that does not exist, is no directory, cannot be read,
/// or lies in an "@eaDir".
[[nodiscard]] std::vector<std::string> CheckedDirectories(
    const std::vector<std::string>& directories);

/// Carries out one command line; `arguments` do not include the program's name. Returns the exit
/// status: 0 when all is well, 1 when something failed, 2 for wrong usage.
[[nodiscard]] int RunCommandLine(const std::vector<std::string>& arguments,
                                 const Environment& environment, std::ostream& out,
                                 std::ostream& err);

// The commands, each in a file of its own.
void AddMakeCommand(CLI::App& app, CommandContext& context);
void AddRetryCommand(CLI::App& app, CommandContext& context);
void AddStatusCommand(CLI::App& app, CommandContext& context);
void AddFailedCommand(CLI::App& app, CommandContext& context);
void AddDirsCommand(CLI::App& app, CommandContext& context);
void AddCleanCommand(CLI::App& app, CommandContext& context);
void AddQueueCommand(CLI::App& app, CommandContext& context);
void AddProgressCommand(CLI::App& app, CommandContext& context);
void AddIndexCommand(CLI::App& app, CommandContext& context);
void AddGalleryCommand(CLI::App& app, CommandContext& context);
void AddWatchCommand(CLI::App& app, CommandContext& context);
void AddDoctorCommand(CLI::App& app, CommandContext& context);

}  // namespace keldo::ctl
