// keldothumbctl make and retry: make the thumbnails of whole libraries.
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ctl/commands/command.h"
#include "ctl/library/kind_profile.h"
#include "ctl/library/mask_text.h"
#include "ctl/library/photo_scan.h"
#include "ctl/make/make_report.h"
#include "thumbs/directories.h"
#include "thumbs/metadata_names.h"
#include "util/path.h"

namespace keldo::ctl {
namespace {

constexpr const char* kMakeExamples =
    "Thumbnails that are up to date are kept. A photo that failed is tried again when it has "
    "changed\n"
    "or when its folder has other work; 'retry' tries all of them. Ctrl-C stops at once: a "
    "thumbnail\n"
    "is either complete or absent, and 'clean' finds what a converter was writing.\n"
    "\n"
    "Examples:\n"
    "  keldothumbctl make ~/Pictures\n"
    "  keldothumbctl make -j 2 --nice /volume1/photo /volume2/photo\n"
    "  keldothumbctl make --only-missing-kinds S,M ~/Pictures   only these two kinds\n";

constexpr const char* kRetryExamples =
    "Examples:\n"
    "  keldothumbctl failed ~/Pictures    what failed, and why\n"
    "  keldothumbctl retry ~/Pictures     try it again\n";

struct Request {
  std::vector<std::string> directories;
  MakeSettings settings;
  std::string kinds;
  bool retry = false;
};

std::string ProblemWithKinds(const std::string& text) {
  const std::optional<int> mask = ParseMask(text);
  if (mask && *mask != 0) return {};
  return "'" + text + "' is not a list of kinds such as S,M,XL";
}

// Removes the failure markers in a directory, so that its photos are tried again.
void ClearMarkers(DirectoryState& directory, PhotoScanner& scanner, Console& console) {
  for (const PhotoState& photo : directory.photos) {
    if (!photo.IsFailed()) continue;
    const std::string metadata = JoinPath(JoinPath(directory.path, kMetadataDirectory), photo.name);
    if (!RemoveFilesByPattern(metadata, kThumbMarkerPattern)) {
      console.Fail(PathOf(directory, photo), "cannot remove its failure markers");
    }
  }
  if (CountsOf(directory).failed_photos > 0) directory = scanner.Scan(directory.path);
}

std::vector<DirectoryState> FindWork(const Request& request, PhotoScanner& scanner,
                                     Console& console, bool& complete) {
  std::vector<DirectoryState> work;
  complete = ScanLibrary(CheckedDirectories(request.directories), scanner, console,
                         [&](DirectoryState directory) {
                           directory.error = 0;  // The walk has reported it already.
                           if (request.retry) ClearMarkers(directory, scanner, console);
                           work.push_back(std::move(directory));
                         });
  return work;
}

int RunMake(const Request& request, CommandContext& context) {
  MakeOptions options = OptionsFrom(request.settings, context);
  std::optional<KindProfile> some_kinds;
  if (!request.kinds.empty()) {
    std::string problem;
    some_kinds = KindProfile::Make(options.profile_path, *ParseMask(request.kinds), problem);
    if (!some_kinds) return context.console.Fail(options.profile_path, problem);
    options.profile_path = some_kinds->path();
  }
  PhotoScanner scanner(options.profile_path);
  bool complete = true;
  std::vector<DirectoryState> work = FindWork(request, scanner, context.console, complete);
  const MakeOutcome outcome = MakeWithProgress(options, scanner, std::move(work), context.console);
  const int status = ReportOutcome(context.console, outcome, request.settings.json);
  return complete ? status : kSomeFailed;
}

CLI::App* AddMaking(CLI::App& app, CommandContext& context, const char* name,
                    const char* description, const std::shared_ptr<Request>& request) {
  CLI::App* command = AddCommand(app, context, name, description);
  AddMakeOptions(*command, request->settings);
  AddDirectoriesArgument(*command, request->directories);
  OnRun(*command, context, [&context, request] { return RunMake(*request, context); });
  return command;
}

}  // namespace

void AddMakeCommand(CLI::App& app, CommandContext& context) {
  const auto request = std::make_shared<Request>();
  CLI::App* command =
      AddMaking(app, context, "make", "Make all thumbnails that are missing or stale", request);
  AddText(*command, "--only-missing-kinds", request->kinds,
          "Consider only these kinds, and make those that are missing or stale",
          {.type_name = "LIST", .problem = ProblemWithKinds});
  SetFooter(*command, kMakeExamples);
}

void AddRetryCommand(CLI::App& app, CommandContext& context) {
  const auto request = std::make_shared<Request>();
  request->retry = true;
  CLI::App* command =
      AddMaking(app, context, "retry", "Like make, but also try photos again that failed", request);
  SetFooter(*command, kRetryExamples);
}

}  // namespace keldo::ctl
