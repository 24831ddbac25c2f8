// keldothumbctl clean: leftover files in the metadata directories.
#include <json/value.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <memory>
#include <ostream>
#include <set>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "ctl/commands/command.h"
#include "ctl/library/metadata_cleaner.h"
#include "thumbs/metadata_names.h"
#include "thumbs/tree_walk.h"
#include "util/path.h"

namespace keldo::ctl {
namespace {

using Reason = Leftovers::Reason;

constexpr const char* kExamples =
    "Finds the metadata of photos that no longer exist, files left behind by interrupted runs, "
    "and\n"
    "outdated failure markers. Only files that this system makes are ever removed.\n"
    "\n"
    "Examples:\n"
    "  keldothumbctl clean ~/Pictures            shows what would be removed\n"
    "  keldothumbctl clean --force ~/Pictures    removes it\n";

constexpr std::array<std::pair<Reason, const char*>, 3> kHeadings{
    {{Reason::kPhotoGone, "Photos that no longer exist:"},
     {Reason::kTemporary, "Left behind by interrupted runs:"},
     {Reason::kStaleMarker, "Outdated failure markers:"}}};

const char* JsonNameOf(Reason reason) {
  switch (reason) {
    case Reason::kPhotoGone:
      return "photo gone";
    case Reason::kTemporary:
      return "temporary";
    case Reason::kStaleMarker:
      break;
  }
  return "stale marker";
}

struct Request {
  std::vector<std::string> directories;
  bool force = false;
  bool json = false;
};

// Leftovers and where they are; with --force, only those that were removed.
struct Entry {
  std::string directory;
  Leftovers leftovers;

  [[nodiscard]] std::string Metadata() const {
    return JoinPath(JoinPath(directory, kMetadataDirectory), leftovers.photo);
  }
};

// The path with all links resolved; empty when it leads nowhere.
std::string RealPath(const std::string& path) {
  std::error_code error;
  return std::filesystem::canonical(path, error).native();
}

bool IsBelow(const std::string& path, const std::string& root) {
  return path == root || root == "/" || path.starts_with(root + "/");
}

class Cleaning {
 public:
  Cleaning(const Request& request, Console& console) : request_(request), console_(console) {}

  void CleanTree(const std::string& root) {
    const std::string real_root = RealPath(root);
    WalkDirectories(root, {[&](const std::string& directory) { Visit(directory, real_root); },
                           [this](const std::string& directory, int error) {
                             Fail(directory, std::strerror(error));
                           }});
  }

  int Report() {
    if (request_.json) {
      PrintJson();
    } else if (!console_.style().quiet) {
      PrintText();
    }
    return failed_ ? kSomeFailed : kAllWell;
  }

 private:
  // A link that leads out of the tree is skipped. If it stays inside, its target is treated like
  // any other directory.
  void Visit(const std::string& directory, const std::string& real_root) {
    const std::string real = RealPath(directory);
    if (real.empty()) return Fail(directory, std::strerror(ENOENT));
    if (!IsBelow(real, real_root) || !seen_.insert(real).second) return;
    MetadataCleaner cleaner(real);
    switch (cleaner.state()) {
      case MetadataCleaner::State::kReady:
        Clean(directory, cleaner);
        break;
      case MetadataCleaner::State::kNotDirectory:
        console_.Warn(ShownName(JoinPath(directory, kMetadataDirectory)) +
                      ": not a directory; skipped");
        break;
      case MetadataCleaner::State::kLocked:
        Fail(directory, "another program is working on the folder; skipped");
        break;
      case MetadataCleaner::State::kNoMetadata:
      case MetadataCleaner::State::kFailed:
        break;
    }
    if (!cleaner.problem().empty()) Fail(directory, cleaner.problem());
  }

  void Clean(const std::string& directory, MetadataCleaner& cleaner) {
    for (Leftovers& leftovers : cleaner.Find()) {
      Entry entry{directory, std::move(leftovers)};
      if (request_.force && !Remove(cleaner, entry)) continue;
      files_ += static_cast<long>(entry.leftovers.files.size());
      bytes_ += entry.leftovers.bytes;
      entries_.push_back(std::move(entry));
    }
  }

  // Reduces the entry to what was removed. False when nothing was.
  bool Remove(MetadataCleaner& cleaner, Entry& entry) {
    Removal removal = cleaner.Remove(entry.leftovers);
    if (!removal.problem.empty()) Fail(entry.Metadata(), "cannot be removed: " + removal.problem);
    const bool is_directory = entry.leftovers.reason == Reason::kPhotoGone;
    entry.leftovers.files = std::move(removal.files);
    entry.leftovers.bytes = removal.bytes;
    entry.leftovers.has_others = is_directory && !removal.directory;
    return removal.directory || !entry.leftovers.files.empty();
  }

  void Fail(const std::string& path, const std::string& problem) {
    console_.Fail(path, problem);
    failed_ = true;
    Json::Value skipped = JsonPath(path);
    skipped["problem"] = problem;
    problems_.append(skipped);
  }

  void PrintEntry(const Entry& entry) {
    const Leftovers& leftovers = entry.leftovers;
    const std::string metadata = ShownName(entry.Metadata());
    if (leftovers.reason != Reason::kPhotoGone) {
      for (const std::string& file : leftovers.files)
        console_.out() << "  " << metadata << "/" << ShownName(file) << "\n";
      return;
    }
    console_.out() << "  " << metadata << ": "
                   << Counted(static_cast<long>(leftovers.files.size()), "file") << ", "
                   << SizeText(leftovers.bytes);
    if (leftovers.has_others)
      console_.out() << "; the directory stays because it also holds other files";
    console_.out() << "\n";
    if (!console_.style().verbose) return;
    for (const std::string& file : leftovers.files)
      console_.out() << "    " << file << "\n";
  }

  void PrintText() {
    for (const auto& [reason, heading] : kHeadings) {
      bool is_first = true;
      for (const Entry& entry : entries_) {
        if (entry.leftovers.reason != reason) continue;
        if (is_first) {
          console_.out() << console_.Coloured(Console::Colour::kBold, heading) << "\n";
        }
        is_first = false;
        PrintEntry(entry);
      }
    }
    if (entries_.empty()) {
      console_.out() << "Nothing to clean up.\n";
      return;
    }
    const std::string total = Counted(files_, "file") + ", " + SizeText(bytes_);
    if (request_.force) {
      console_.out() << "Removed " << total << ".\n";
    } else {
      console_.out() << total << " in total; run again with --force to remove them\n";
    }
  }

  void PrintJson() {
    Json::Value value(Json::objectValue);
    value["removed"] = request_.force;
    value["leftovers"] = Json::Value(Json::arrayValue);
    for (const Entry& entry : entries_) {
      Json::Value item = JsonPath(entry.Metadata());
      item["reason"] = JsonNameOf(entry.leftovers.reason);
      item["bytes"] = static_cast<Json::Int64>(entry.leftovers.bytes);
      item["files"] = Json::Value(Json::arrayValue);
      for (const std::string& file : entry.leftovers.files)
        item["files"].append(file);
      if (entry.leftovers.reason == Reason::kPhotoGone) {
        item["directory_stays"] = entry.leftovers.has_others;
      }
      value["leftovers"].append(item);
    }
    value["files"] = static_cast<Json::Int64>(files_);
    value["bytes"] = static_cast<Json::Int64>(bytes_);
    value["problems"] = problems_;
    console_.PrintJson(value);
  }

  const Request& request_;
  Console& console_;
  std::set<std::string> seen_;
  std::vector<Entry> entries_;
  Json::Value problems_{Json::arrayValue};
  long files_ = 0;
  std::int64_t bytes_ = 0;
  bool failed_ = false;
};

int RunClean(const Request& request, Console& console) {
  Cleaning cleaning(request, console);
  for (const std::string& root : CheckedDirectories(request.directories))
    cleaning.CleanTree(root);
  return cleaning.Report();
}

}  // namespace

void AddCleanCommand(CLI::App& app, CommandContext& context) {
  const auto request = std::make_shared<Request>();
  CLI::App* command = AddCommand(app, context, "clean",
                                 "Find leftover files in the metadata directories, or remove them");
  AddFlag(*command, "--force", request->force, "Remove what is found");
  AddJsonOption(*command, request->json);
  AddDirectoriesArgument(*command, request->directories);
  SetFooter(*command, kExamples);
  OnRun(*command, context, [&context, request] { return RunClean(*request, context.console); });
}

}  // namespace keldo::ctl
