#include "ctl/commands/command.h"

#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "ctl/library/photo_scan.h"
#include "index/index_database.h"
#include "thumbs/metadata_names.h"
#include "thumbs/progress.h"
#include "util/path.h"

namespace keldo::ctl {
namespace {

constexpr const char* kInstalledProfile = "/etc/keldothumb/thumb.conf";
constexpr const char* kInstalledProgram = "/usr/bin/keldothumb";
constexpr int kMostJobs = 1024;
constexpr double kMostSeconds = 86400;

// "nan" counts as a number and passes every range check.
std::string ProblemWithNumber(const std::string& text) {
  return std::isnan(std::strtod(text.c_str(), nullptr)) ? "'" + text + "' is not a number" : "";
}

// The keldothumb next to this program: both are built and installed together.
std::string ProgramBesideUs() {
  std::string self(PATH_MAX, '\0');
  const ssize_t length = ::readlink("/proc/self/exe", self.data(), self.size());
  if (length <= 0) return kInstalledProgram;
  self.resize(static_cast<std::size_t>(length));
  return self.substr(0, self.rfind('/')) + "/keldothumb";
}

ConsoleStyle StyleFor(const CommandContext& context) {
  const Environment& environment = context.environment;
  ConsoleStyle style;
  style.colour =
      context.colour == "always" ||
      (context.colour == "auto" && environment.terminal_out && !environment.colour_forbidden);
  style.live_progress = environment.terminal_err && !context.quiet;
  style.quiet = context.quiet;
  style.verbose = context.verbose;
  return style;
}

bool IsInMetadata(const std::string& path) {
  return (path + "/").find(std::string("/") + kMetadataDirectory + "/") != std::string::npos;
}

// Why a directory cannot be worked on; empty when it can.
std::string ProblemWithDirectory(const std::string& directory) {
  struct stat status {};
  if (::stat(directory.c_str(), &status) != 0) return std::strerror(errno);
  if (!S_ISDIR(status.st_mode)) return "not a directory";
  if (::access(directory.c_str(), R_OK | X_OK) != 0) return std::strerror(errno);
  return IsInMetadata(PathKey(directory)) ? "holds thumbnails, not photos" : "";
}

// The number of processors that this process may use.
int ProcessorCount() {
  cpu_set_t processors;
  CPU_ZERO(&processors);
  if (sched_getaffinity(0, sizeof processors, &processors) != 0) return 1;
  return std::max(1, CPU_COUNT(&processors));
}

}  // namespace

Environment EnvironmentOfProcess() {
  const char* no_colour = std::getenv("NO_COLOR");
  Environment environment;
  environment.database_path = index::kDatabasePath;
  environment.keldothumb = ProgramBesideUs();
  environment.profile_path = kInstalledProfile;
  environment.read_progress = ReadProgress;
  environment.terminal_out = ::isatty(STDOUT_FILENO) == 1;
  environment.terminal_err = ::isatty(STDERR_FILENO) == 1;
  environment.colour_forbidden = no_colour != nullptr && *no_colour != '\0';
  return environment;
}

CLI::App* AddCommand(CLI::App& parent, CommandContext& context, const std::string& name,
                     const std::string& description) {
  CLI::App* command = parent.add_subcommand(name, description);
  command->add_flag("-q,--quiet", context.quiet, "Print less: only failures and totals");
  command->add_flag("-v,--verbose", context.verbose, "Print more");
  command
      ->add_option(
          "--color", context.colour,
          "When to use colours: auto (on a terminal, unless NO_COLOR is set), always or never")
      ->type_name("WHEN")
      ->check(CLI::IsMember({"auto", "always", "never"}));
  return command;
}

void OnRun(CLI::App& command, CommandContext& context, std::function<int()> run) {
  command.callback([&context, run = std::move(run)] {
    context.console.set_style(StyleFor(context));
    context.status = context.console.Finish(run());
  });
}

CLI::App& AddGroup(CLI::App& parent, const char* name, const char* description) {
  CLI::App* group = parent.add_subcommand(name, description);
  group->require_subcommand(1);
  return *group;
}

void SetFooter(CLI::App& command, const char* text) {
  command.footer(text);
}

CLI::Option* AddFlag(CLI::App& command, const char* names, bool& value, const char* help) {
  return command.add_flag(names, value, help);
}

void AddText(CLI::App& command, const char* names, std::string& value, const char* help,
             const ArgumentRules& rules) {
  CLI::Option* option = command.add_option(names, value, help);
  option->type_name(rules.type_name)->required(rules.required);
  if (rules.problem != nullptr) option->check(rules.problem);
}

void AddSeconds(CLI::App& command, const char* name, double& value, const char* help,
                double least) {
  command.add_option(name, value, help)
      ->type_name("SECONDS")
      ->check(CLI::Range(least, kMostSeconds))
      ->check(ProblemWithNumber);
}

void Exclude(CLI::Option& option, CLI::Option& other) {
  option.excludes(&other);
}

CLI::Option* AddJsonOption(CLI::App& command, bool& json) {
  return AddFlag(command, "--json", json, "Print one JSON object");
}

void AddProfileOption(CLI::App& command, std::string& profile) {
  command.add_option("--profile", profile, "The profile file; default: /etc/keldothumb/thumb.conf")
      ->type_name("FILE");
}

std::optional<std::string> ProfileToUse(const std::string& named, const Environment& environment) {
  const std::string& path = named.empty() ? environment.profile_path : named;
  if (named.empty() && ::access(path.c_str(), F_OK) != 0) return std::nullopt;
  if (::access(path.c_str(), R_OK) != 0)
    throw UsageError(ShownName(path) + ": " + std::strerror(errno));
  if (!IsUsableProfile(path)) throw UsageError(ShownName(path) + ": not a profile file");
  return PathKey(path);
}

void AddDirectoriesArgument(CLI::App& command, std::vector<std::string>& directories) {
  command.add_option("DIR", directories, "Directories, with everything below them")
      ->type_name("")
      ->required();
}

std::vector<std::string> CheckedDirectories(const std::vector<std::string>& directories) {
  std::vector<std::string> checked;
  for (const std::string& directory : directories) {
    const std::string problem = ProblemWithDirectory(directory);
    if (!problem.empty()) throw UsageError(ShownName(directory) + ": " + problem);
    checked.push_back(PathKey(directory));
  }
  return checked;
}

void AddRunOptions(CLI::App& command, MakeSettings& settings, const char* jobs_help) {
  command.add_option("-j,--jobs", settings.jobs, jobs_help)
      ->type_name("N")
      ->check(CLI::Range(1, kMostJobs));
  AddProfileOption(command, settings.profile);
  command.add_flag("--nice", settings.nice, "Run at the lowest processor and disk priority");
}

void AddMakeOptions(CLI::App& command, MakeSettings& settings) {
  AddRunOptions(command, settings, "Processors to use; default: all of them");
  command.add_flag("--json", settings.json, "Print the summary as one JSON object");
}

MakeOptions OptionsFrom(const MakeSettings& settings, const CommandContext& context) {
  const std::optional<std::string> profile = ProfileToUse(settings.profile, context.environment);
  if (!profile) {
    throw UsageError(ShownName(context.environment.profile_path) +
                     ": not installed; name a profile file with --profile");
  }
  MakeOptions options;
  options.keldothumb = context.environment.keldothumb;
  options.profile_path = *profile;
  options.jobs = settings.jobs > 0 ? settings.jobs : ProcessorCount();
  options.nice = settings.nice;
  options.show_messages = context.verbose;
  return options;
}

}  // namespace keldo::ctl
