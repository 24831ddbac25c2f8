#include <CLI/CLI.hpp>
#include <exception>
#include <ostream>

#include "ctl/commands/command.h"

namespace keldo::ctl {
namespace {

constexpr const char* kFooter =
    "keldothumbctl COMMAND --help explains a command and shows examples. To begin with:\n"
    "  keldothumbctl doctor                  is everything installed that is needed?\n"
    "  keldothumbctl make ~/Pictures         make all thumbnails\n"
    "  keldothumbctl status ~/Pictures       what is present, what is missing, what failed\n";

void AddCommands(CLI::App& app, CommandContext& context) {
  AddMakeCommand(app, context);
  AddStatusCommand(app, context);
  AddFailedCommand(app, context);
  AddRetryCommand(app, context);
  AddCleanCommand(app, context);
  AddDirsCommand(app, context);
  AddGalleryCommand(app, context);
  AddWatchCommand(app, context);
  AddQueueCommand(app, context);
  AddProgressCommand(app, context);
  AddIndexCommand(app, context);
  AddDoctorCommand(app, context);
}

// CLI11 reads "[a,b]" as a list of two values, but here it is the name of a directory. "./[a,b]" is
// the same path and not a list.
std::vector<std::string> WithoutLists(std::vector<std::string> arguments) {
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const bool is_text = i > 0 && arguments[i - 1] == "--title";
    if (arguments[i].starts_with('[') && arguments[i].ends_with(']') && !is_text) {
      arguments[i].insert(0, "./");
    }
  }
  return arguments;
}

}  // namespace

int RunCommandLine(const std::vector<std::string>& arguments, const Environment& environment,
                   std::ostream& out, std::ostream& err) {
  Console console(out, err);
  CommandContext context{console, environment};
  CLI::App app("Make, inspect and maintain the thumbnails of photo libraries.", "keldothumbctl");
  app.set_version_flag("--version", "keldothumbctl " KELDO_VERSION);
  app.require_subcommand(1);
  app.footer(kFooter);
  AddCommands(app, context);
  try {
    // CLI11 expects the arguments in reverse.
    const std::vector<std::string> words = WithoutLists(arguments);
    app.parse(std::vector<std::string>(words.rbegin(), words.rend()));
  } catch (const CLI::ParseError& error) {
    return app.exit(error, out, err) == 0 ? kAllWell : kUsage;
  } catch (const UsageError& error) {
    console.Warn(error.what());
    return kUsage;
  } catch (const std::exception& error) {
    // We ran out of memory or descriptors.
    console.Warn(error.what());
    return kSomeFailed;
  }
  return context.status;
}

}  // namespace keldo::ctl
