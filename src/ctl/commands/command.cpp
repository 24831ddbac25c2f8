#include "ctl/commands/command.h"

#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "ctl/library/photo_scan.h"
#include "index/index_database.h"
#include "thumbs/paths.h"
#include "util/path.h"

namespace keldo::ctl {
namespace {

constexpr const char* kInstalledProfile = "/etc/keldothumb/thumb.conf";
constexpr const char* kInstalledProgram = "/usr/bin/keldothumb";

// The keldothumb beside this program, as both are built and installed together.
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
  return (path + "/").find("/@eaDir/") != std::string::npos;
}

}  // namespace

Environment EnvironmentOfProcess() {
  const char* no_colour = std::getenv("NO_COLOR");
  Environment environment;
  environment.database_path = index::kDatabasePath;
  environment.keldothumb = ProgramBesideUs();
  environment.profile_path = kInstalledProfile;
  environment.terminal_out = ::isatty(STDOUT_FILENO) == 1;
  environment.terminal_err = ::isatty(STDERR_FILENO) == 1;
  environment.colour_forbidden = no_colour != nullptr && *no_colour != '\0';
  return environment;
}

CLI::App* AddCommand(CLI::App& parent, CommandContext& context, const std::string& name,
                     const std::string& description) {
  CLI::App* command = parent.add_subcommand(name, description);
  command->add_flag("-q,--quiet", context.quiet, "Say less: what failed, and totals");
  command->add_flag("-v,--verbose", context.verbose, "Say more");
  command
      ->add_option("--color", context.colour,
                   "Colours: auto (on a terminal, unless NO_COLOR is set), always or never")
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

void AddProfileOption(CLI::App& command, std::string& profile) {
  command
      .add_option("--profile", profile, "The profile file; /etc/keldothumb/thumb.conf otherwise")
      ->type_name("FILE");
}

std::optional<std::string> ProfileToUse(const std::string& named, const Environment& environment) {
  const std::string& path = named.empty() ? environment.profile_path : named;
  if (named.empty() && ::access(path.c_str(), F_OK) != 0) return std::nullopt;
  if (::access(path.c_str(), R_OK) != 0)
    throw UsageError{ShownName(path) + ": " + std::strerror(errno)};
  if (!IsUsableProfile(path)) throw UsageError{ShownName(path) + ": is no profile file"};
  return PathKey(path);
}

void AddDirectoriesArgument(CLI::App& command, std::vector<std::string>& directories) {
  command.add_option("DIR", directories, "Directories; what lies below them is included")
      ->type_name("")
      ->required();
}

std::vector<std::string> CheckedDirectories(const std::vector<std::string>& directories) {
  std::vector<std::string> checked;
  for (const std::string& directory : directories) {
    struct stat status {};
    const std::string shown = ShownName(directory);
    if (::stat(directory.c_str(), &status) != 0)
      throw UsageError{shown + ": " + std::strerror(errno)};
    if (!S_ISDIR(status.st_mode)) throw UsageError{shown + ": is no directory"};
    if (::access(directory.c_str(), R_OK | X_OK) != 0) {
      throw UsageError{shown + ": " + std::strerror(errno)};
    }
    checked.push_back(PathKey(directory));
    if (IsInMetadata(checked.back())) {
      throw UsageError{shown + ": holds thumbnails, not photos"};
    }
  }
  return checked;
}

}  // namespace keldo::ctl
