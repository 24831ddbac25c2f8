// keldothumbctl status: what is present, what is missing, what failed.
#include <json/value.h>

#include <memory>
#include <string>
#include <vector>

#include "ctl/commands/command.h"
#include "ctl/library/photo_scan.h"

namespace keldo::ctl {
namespace {

constexpr const char* kExamples =
    "present  exists, and is not older than the photo\n"
    "missing  does not exist\n"
    "stale    empty, or older than the photo\n"
    "failed   could not be made; 'keldothumbctl failed' says why\n"
    "\n"
    "Examples:\n"
    "  keldothumbctl status ~/Pictures\n"
    "  keldothumbctl status --by-kind /volume1/photo /volume2/photo\n"
    "  keldothumbctl status --json ~/Pictures | jq .total.thumbnails.missing\n";

struct Request {
  std::vector<std::string> directories;
  std::string profile;
  bool by_kind = false;
  bool json = false;
};

using Row = std::vector<std::string>;

std::string NameOf(ThumbState state) {
  switch (state) {
    case ThumbState::kPresent:
      return "present";
    case ThumbState::kMissing:
      return "missing";
    case ThumbState::kStale:
      return "stale";
    case ThumbState::kFailed:
      return "failed";
    case ThumbState::kUnwanted:
      break;
  }
  return "unwanted";
}

Console::Colour ColourOf(ThumbState state) {
  if (state == ThumbState::kPresent) return Console::Colour::kGreen;
  return state == ThumbState::kFailed ? Console::Colour::kRed : Console::Colour::kYellow;
}

// Prints what the scan finds, and the totals.
class StatusReport {
 public:
  StatusReport(Console& console, const Request& request) : console_(console), request_(request) {
    Row heading{"photos"};
    for (const ThumbState state : kCountedStates)
      heading.push_back(NameOf(state));
    heading.emplace_back("directory");
    rows_.push_back(heading);
  }

  void Add(const DirectoryState& directory) {
    const LibraryCounts counts = CountsOf(directory);
    total_.Add(counts);
    if (request_.json) {
      Json::Value value = JsonPath(directory.path);
      AddCounts(counts, value);
      directories_.append(value);
    } else if (!console_.style().quiet) {
      rows_.push_back(RowOf(counts, ShownName(directory.path)));
    }
  }

  void Print() {
    if (request_.json) {
      Json::Value value(Json::objectValue);
      value["directories"] = directories_;
      AddCounts(total_, value["total"]);
      console_.PrintJson(value);
      return;
    }
    rows_.push_back(RowOf(total_, console_.Coloured(Console::Colour::kBold, "total")));
    console_.out() << Table(rows_, rows_.front().size() - 1);
    if (request_.by_kind) console_.out() << "\n" << Table(KindRows(), 0);
  }

  [[nodiscard]] int status() const { return total_.failed_photos > 0 ? kSomeFailed : kAllWell; }

 private:
  [[nodiscard]] std::string Cell(ThumbState state, int count) const {
    const std::string text = Grouped(count);
    return count == 0 ? text : console_.Coloured(ColourOf(state), text);
  }

  [[nodiscard]] Row RowOf(const LibraryCounts& counts, const std::string& name) const {
    Row row{Grouped(counts.photos)};
    for (const ThumbState state : kCountedStates)
      row.push_back(Cell(state, counts.Thumbs(state)));
    row.push_back(name);
    return row;
  }

  [[nodiscard]] std::vector<Row> KindRows() const {
    std::vector<Row> rows{{"kind"}};
    for (const ThumbState state : kCountedStates)
      rows.front().push_back(NameOf(state));
    for (const ThumbKindInfo& kind : kKindsBySize) {
      Row row{kind.short_name};
      for (const ThumbState state : kCountedStates)
        row.push_back(Cell(state, total_.Thumbs(kind.kind, state)));
      rows.push_back(row);
    }
    return rows;
  }

  void AddCounts(const LibraryCounts& counts, Json::Value& value) const {
    value["photos"] = counts.photos;
    value["failed_photos"] = counts.failed_photos;
    value["unfinished_photos"] = counts.unfinished_photos;
    for (const ThumbState state : kCountedStates) {
      value["thumbnails"][NameOf(state)] = counts.Thumbs(state);
      if (!request_.by_kind) continue;
      for (const ThumbKindInfo& kind : kKindsBySize)
        value["kinds"][kind.short_name][NameOf(state)] = counts.Thumbs(kind.kind, state);
    }
  }

  Console& console_;
  const Request& request_;
  std::vector<Row> rows_;
  Json::Value directories_{Json::arrayValue};
  LibraryCounts total_;
};

int RunStatus(const Request& request, CommandContext& context) {
  PhotoScanner scanner(ProfileToUse(request.profile, context.environment));
  StatusReport report(context.console, request);
  const bool complete =
      ScanLibrary(CheckedDirectories(request.directories), scanner, context.console,
                  [&report](const DirectoryState& directory) { report.Add(directory); });
  report.Print();
  return complete ? report.status() : kSomeFailed;
}

}  // namespace

void AddStatusCommand(CLI::App& app, CommandContext& context) {
  const auto request = std::make_shared<Request>();
  CLI::App* command =
      AddCommand(app, context, "status", "Count photos and their thumbnails by state");
  AddFlag(*command, "--by-kind", request->by_kind, "Also count each kind separately");
  AddJsonOption(*command, request->json);
  AddProfileOption(*command, request->profile);
  AddDirectoriesArgument(*command, request->directories);
  SetFooter(*command, kExamples);
  OnRun(*command, context, [&context, request] { return RunStatus(*request, context); });
}

}  // namespace keldo::ctl
