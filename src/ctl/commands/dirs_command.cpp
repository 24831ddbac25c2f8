// keldothumbctl dirs: the directories that hold photos, for tools that distribute work.
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "ctl/commands/command.h"
#include "ctl/library/photo_scan.h"

namespace keldo::ctl {
namespace {

constexpr const char* kExamples =
    "Each directory can have its own keldothumb process:\n"
    "  keldothumbctl dirs -0 --todo ~/Pictures |\n"
    "    parallel -0 keldothumb /etc/keldothumb/thumb.conf {}\n"
    "A name with a line break needs -0. Without -0 it is skipped with a message, and the status is "
    "1.\n";

struct Request {
  std::vector<std::string> directories;
  std::string profile;
  bool todo = false;
  bool null_terminated = false;
};

int RunDirs(const Request& request, CommandContext& context) {
  Console& console = context.console;
  PhotoScanner scanner(ProfileToUse(request.profile, context.environment));
  bool all_printed = true;
  const bool complete = ScanLibrary(
      CheckedDirectories(request.directories), scanner, console,
      [&](const DirectoryState& directory) {
        if (request.todo && CountsOf(directory).unfinished_photos == 0) return;
        if (!request.null_terminated && directory.path.find('\n') != std::string::npos) {
          console.Fail(directory.path, "the name has a line break; use -0");
          all_printed = false;
          return;
        }
        console.out() << directory.path << (request.null_terminated ? '\0' : '\n');
      });
  return complete && all_printed ? kAllWell : kSomeFailed;
}

}  // namespace

void AddDirsCommand(CLI::App& app, CommandContext& context) {
  const auto request = std::make_shared<Request>();
  CLI::App* command =
      AddCommand(app, context, "dirs", "Print the directories that hold photos, one per line");
  AddFlag(*command, "--todo", request->todo, "Only those with missing or stale thumbnails");
  AddFlag(*command, "-0,--null", request->null_terminated,
          "End each name with a zero byte instead");
  AddProfileOption(*command, request->profile);
  AddDirectoriesArgument(*command, request->directories);
  SetFooter(*command, kExamples);
  OnRun(*command, context, [&context, request] { return RunDirs(*request, context); });
}

}  // namespace keldo::ctl
