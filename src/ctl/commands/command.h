// What every command of keldothumbctl is given, and how it joins the command line.
#pragma once

#include <functional>
#include <iosfwd>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "ctl/console.h"
#include "ctl/library/work_queue_file.h"
#include "ctl/make/maker.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace keldo::ctl {

/// Reads one of the indexer's counters, as ReadProgress does.
using ProgressReader = std::function<int(int kind, const char* key)>;

/// Where the programs and files are that the commands work with.
struct Environment {
  std::string database_path;  ///< The embedded index.
  std::string keldothumb;     ///< The program that makes thumbnails.
  std::string profile_path;   ///< The profile file unless --profile names another.
  QueuePaths queue{};         ///< The work queue.
  ProgressReader read_progress{};
  bool terminal_out = false;      ///< Standard output is a terminal.
  bool terminal_err = false;      ///< Standard error is a terminal.
  bool colour_forbidden = false;  ///< NO_COLOR is set.
};

/// The environment of this process.
[[nodiscard]] Environment EnvironmentOfProcess();

/// Runs one command line; `arguments` do not include the program's name. Returns the exit status.
[[nodiscard]] int RunCommandLine(const std::vector<std::string>& arguments,
                                 const Environment& environment, std::ostream& out,
                                 std::ostream& err);

inline constexpr int kAllWell = 0;
inline constexpr int kSomeFailed = 1;
inline constexpr int kUsage = 2;

/// Wrong usage that only shows after parsing. RunCommandLine prints it and returns kUsage.
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// What the commands share while one command line runs.
struct CommandContext {
  Console& console;
  const Environment& environment;
  int status = kAllWell;  ///< The exit status, set by the command that ran.
  // Options of every command.
  bool quiet = false;
  bool verbose = false;
  std::string colour = "auto";
};

/// Adds a command with the options that all have: --quiet, --verbose and --color.
CLI::App* AddCommand(CLI::App& parent, CommandContext& context, const std::string& name,
                     const std::string& description);
/// `run` is called when the command line names the command. It returns the exit status, and may
/// throw UsageError.
void OnRun(CLI::App& command, CommandContext& context, std::function<int()> run);

/// Adds a group of commands, one of which must be named.
CLI::App& AddGroup(CLI::App& parent, const char* name, const char* description);

/// Sets the text that --help ends with.
void SetFooter(CLI::App& command, const char* text);

// Options and positional arguments. These hide the parser: compiling its templates takes seconds,
// which the files of the commands would each pay.

/// Says what is wrong with an argument; nothing when it is valid.
using ProblemWithText = std::string (*)(const std::string& text);

/// What is special about an argument.
struct ArgumentRules {
  const char* type_name = "";  ///< Stands for the value in --help.
  bool required = false;
  ProblemWithText problem = nullptr;
};

CLI::Option* AddFlag(CLI::App& command, const char* names, bool& value, const char* help);
void AddText(CLI::App& command, const char* names, std::string& value, const char* help,
             const ArgumentRules& rules);
/// Adds an option that takes a number of seconds of at least `least`.
void AddSeconds(CLI::App& command, const char* name, double& value, const char* help, double least);
/// Makes two options a usage error when both are given.
void Exclude(CLI::Option& option, CLI::Option& other);

/// Adds "--json", for commands that print one JSON object.
CLI::Option* AddJsonOption(CLI::App& command, bool& json);

/// Adds "--profile FILE".
void AddProfileOption(CLI::App& command, std::string& profile);

/// The profile file to use: `named`, or the installed one if `named` is empty; nothing when none is
/// installed. Throws UsageError when the file cannot be used.
[[nodiscard]] std::optional<std::string> ProfileToUse(const std::string& named,
                                                      const Environment& environment);

/// Adds the positional "DIR...", of which at least one must be given.
void AddDirectoriesArgument(CLI::App& command, std::vector<std::string>& directories);

/// The directories as the commands work on them: absolute, without "//", "." or a trailing slash,
/// with links kept. Throws UsageError for one that does not exist, is not a directory, cannot be
/// read, or lies in an "@eaDir".
[[nodiscard]] std::vector<std::string> CheckedDirectories(
    const std::vector<std::string>& directories);

/// The options of the commands that make thumbnails.
struct MakeSettings {
  int jobs = 0;  ///< 0: one for each processor.
  std::string profile;
  bool nice = false;
  bool json = false;
};

/// Adds -j, --profile and --nice. `jobs_help` describes -j.
void AddRunOptions(CLI::App& command, MakeSettings& settings, const char* jobs_help);
/// Adds these and --json.
void AddMakeOptions(CLI::App& command, MakeSettings& settings);

/// Throws UsageError when there is no usable profile file.
[[nodiscard]] MakeOptions OptionsFrom(const MakeSettings& settings, const CommandContext& context);

// The commands, each in its own file.
void AddMakeCommand(CLI::App& app, CommandContext& context);
void AddRetryCommand(CLI::App& app, CommandContext& context);
void AddStatusCommand(CLI::App& app, CommandContext& context);
void AddFailedCommand(CLI::App& app, CommandContext& context);
void AddDirsCommand(CLI::App& app, CommandContext& context);
void AddCleanCommand(CLI::App& app, CommandContext& context);
void AddQueueCommand(CLI::App& app, CommandContext& context);
void AddProgressCommand(CLI::App& app, CommandContext& context);
void AddIndexCommand(CLI::App& app, CommandContext& context);
void AddIndexListCommand(CLI::App& index, CommandContext& context);
void AddIndexShowCommand(CLI::App& index, CommandContext& context);
void AddGalleryCommand(CLI::App& app, CommandContext& context);
void AddWatchCommand(CLI::App& app, CommandContext& context);
void AddDoctorCommand(CLI::App& app, CommandContext& context);

}  // namespace keldo::ctl
