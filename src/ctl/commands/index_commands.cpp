// keldothumbctl index, and index mask: which thumbnails are wanted for a directory.
#include <json/value.h>

#include <memory>
#include <optional>
#include <ostream>
#include <string>

#include "ctl/commands/command.h"
#include "ctl/library/mask_text.h"
#include "index/index_database.h"
#include "platform/file.h"
#include "platform/index_ipc.h"
#include "util/path.h"

namespace keldo::ctl {
namespace {

using index::IndexDatabase;
using index::MaskEntry;

constexpr const char* kMaskHelp =
    "Show or set which thumbnails are wanted for a directory and everything below it";

constexpr const char* kMaskExamples =
    "Kinds, with the side of their box in pixels:\n"
    "  S 120, SM 240, M 320, B 640, L 800, XL 1280\n"
    "As a number, add up: S 1, M 2, B 4, L 8, XL 16, SM 32.\n"
    "\n"
    "Examples:\n"
    "  keldothumbctl index mask /volume1/photo            the current mask, and where it was set\n"
    "  keldothumbctl index mask /volume1/photo S,M,XL     only these three from now on\n"
    "  keldothumbctl index mask /volume1/scans 0          none at all\n"
    "  keldothumbctl index mask /volume1/photo default    inherit from the directory above\n"
    "  keldothumbctl index mask --video /volume1/film S   for videos\n"
    "  keldothumbctl index mask -- -odd-name              a name that begins with a dash\n";

constexpr const char* kInherit = "default";

// What the user asked for.
struct MaskRequest {
  enum class Action { kShow, kSet, kRemove };

  std::string directory;
  Action action = Action::kShow;
  int mask = 0;  ///< For kSet.
  bool video = false;
  bool json = false;
};

using Action = MaskRequest::Action;

int TypeOf(const MaskRequest& request) {
  return request.video ? THUMB_TYPE_VIDEO : THUMB_TYPE_PHOTO;
}

// Only setting a mask creates the database. Without one there is nothing to show or to remove.
IndexDatabase::OpenResult OpenFor(Action action, const std::string& database_path) {
  return action == Action::kSet ? IndexDatabase::OpenOrCreate(database_path)
                                : IndexDatabase::Open(database_path);
}

bool Change(IndexDatabase& database, const MaskRequest& request, const std::string& key) {
  switch (request.action) {
    case Action::kSet:
      return database.SetMask(key, TypeOf(request), request.mask);
    case Action::kRemove:
      return database.RemoveMask(key, TypeOf(request));
    case Action::kShow:
      break;
  }
  return true;
}

void PrintText(const std::string& key, const std::optional<MaskEntry>& entry, std::ostream& out) {
  const int mask = entry ? entry->mask : kAllKinds;
  out << key << ": " << mask << " (" << KindsText(mask) << "), ";
  if (!entry) {
    out << "the default\n";
  } else if (entry->directory == key) {
    out << "set here\n";
  } else {
    out << "inherited from " << entry->directory << "\n";
  }
}

void PrintJson(const MaskRequest& request, const std::string& key,
               const std::optional<MaskEntry>& entry, Console& console) {
  const int mask = entry ? entry->mask : kAllKinds;
  Json::Value value(Json::objectValue);
  value["directory"] = key;
  value["type"] = request.video ? "video" : "photo";
  value["mask"] = mask;
  value["kinds"] = Json::Value(Json::arrayValue);
  for (const std::string& name : KindNames(mask))
    value["kinds"].append(name);
  value["set_on"] = entry ? Json::Value(entry->directory) : Json::Value();
  console.PrintJson(value);
}

// Carries out the request and prints the mask that then applies. Returns the exit status.
int RunMask(const MaskRequest& request, const std::string& database_path, Console& console) {
  // A mask of a mistyped directory would never have an effect. A mask of a deleted directory can
  // still be shown and removed.
  if (request.action == Action::kSet && !keldoindexutils::stat::DoesDirExist(request.directory)) {
    return console.Fail(request.directory, "no such directory");
  }
  const std::string key = PathKey(request.directory);
  std::optional<MaskEntry> entry;
  const auto opened = OpenFor(request.action, database_path);
  if (!opened.database && !opened.missing) return console.Fail(database_path, opened.problem);
  if (opened.database && (!Change(*opened.database, request, key) ||
                          !opened.database->FindMask(key, TypeOf(request), entry))) {
    return console.Fail(database_path, opened.database->problem());
  }
  if (request.json) {
    PrintJson(request, key, entry, console);
  } else {
    PrintText(key, entry, console.out());
  }
  return kAllWell;
}

// What is wrong with a MASK argument; empty if nothing.
std::string ProblemWithMask(const std::string& text) {
  if (text == kInherit || ParseMask(text)) return {};
  return "'" + text + "' is neither a number from 0 to 63 nor a list of kinds";
}

// Reads a valid MASK argument; an empty one only shows the mask.
void ReadMask(const std::string& text, MaskRequest& request) {
  if (text == kInherit) {
    request.action = MaskRequest::Action::kRemove;
  } else if (const auto mask = ParseMask(text)) {
    request.action = MaskRequest::Action::kSet;
    request.mask = *mask;
  }
}

void AddMaskCommand(CLI::App& index, CommandContext& context) {
  const auto request = std::make_shared<MaskRequest>();
  const auto mask_text = std::make_shared<std::string>();
  CLI::App* mask = AddCommand(index, context, "mask", kMaskHelp);
  AddText(*mask, "DIR", request->directory, "The directory", {.required = true});
  AddText(*mask, "MASK", *mask_text,
          "The kinds wanted: S,M,XL or a number from 0 to 63; 'default' to inherit",
          {.problem = ProblemWithMask});
  AddFlag(*mask, "--video", request->video, "For videos instead of photos");
  AddJsonOption(*mask, request->json);
  SetFooter(*mask, kMaskExamples);
  OnRun(*mask, context, [&context, request, mask_text] {
    ReadMask(*mask_text, *request);
    return RunMask(*request, context.environment.database_path, context.console);
  });
}

}  // namespace

void AddIndexCommand(CLI::App& app, CommandContext& context) {
  CLI::App& index = AddGroup(app, "index", "The index of the media on this machine");
  AddMaskCommand(index, context);
  AddIndexListCommand(index, context);
  AddIndexShowCommand(index, context);
}

}  // namespace keldo::ctl
