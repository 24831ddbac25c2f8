// keldothumbctl failed: the photos whose thumbnails could not be made, and why.
#include <json/value.h>

#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "ctl/commands/command.h"
#include "ctl/library/diagnosis.h"
#include "ctl/library/photo_scan.h"

namespace keldo::ctl {
namespace {

constexpr const char* kExamples =
    "The reason is worked out from the photo and the machine as they are now.\n"
    "\n"
    "Examples:\n"
    "  keldothumbctl failed ~/Pictures\n"
    "  keldothumbctl failed -0 ~/Pictures | xargs -0 file --\n"
    "  keldothumbctl retry ~/Pictures        try them again\n";

struct Request {
  std::vector<std::string> directories;
  std::string profile;
  bool null_terminated = false;
  bool json = false;
};

int RunFailed(const Request& request, CommandContext& context) {
  Console& console = context.console;
  PhotoScanner scanner(ProfileToUse(request.profile, context.environment));
  Json::Value list(Json::arrayValue);
  bool failed = false;
  const auto report = [&](const std::string& path) {
    failed = true;
    if (request.null_terminated) {
      console.out() << path << '\0';
    } else if (!request.json) {
      console.out() << ShownName(path) << ": " << WhyFailed(path) << "\n";
    } else {
      Json::Value entry = JsonPath(path);
      entry["reason"] = WhyFailed(path);
      list.append(entry);
    }
  };
  const auto visit = [&](const DirectoryState& directory) {
    for (const PhotoState& photo : directory.photos) {
      if (photo.IsFailed()) report(PathOf(directory, photo));
    }
  };
  const bool complete =
      ScanLibrary(CheckedDirectories(request.directories), scanner, console, visit);
  if (request.json) {
    Json::Value value(Json::objectValue);
    value["failed"] = list;
    console.PrintJson(value);
  }
  return complete && !failed ? kAllWell : kSomeFailed;
}

}  // namespace

void AddFailedCommand(CLI::App& app, CommandContext& context) {
  const auto request = std::make_shared<Request>();
  CLI::App* command = AddCommand(app, context, "failed", "List the photos that failed, and why");
  CLI::Option* json = AddJsonOption(*command, request->json);
  CLI::Option* null_terminated = AddFlag(*command, "-0,--null", request->null_terminated,
                                         "Print only the paths, each followed by a zero byte");
  Exclude(*null_terminated, *json);
  AddProfileOption(*command, request->profile);
  AddDirectoriesArgument(*command, request->directories);
  SetFooter(*command, kExamples);
  OnRun(*command, context, [&context, request] { return RunFailed(*request, context); });
}

}  // namespace keldo::ctl
