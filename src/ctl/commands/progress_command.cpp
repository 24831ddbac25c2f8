// keldothumbctl progress: the indexer's counters.
#include <json/value.h>

#include <array>
#include <cmath>
#include <memory>
#include <ostream>
#include <string>
#include <utility>

#include "ctl/commands/command.h"
#include "thumbs/progress.h"

namespace keldo::ctl {
namespace {

constexpr const char* kExplanation =
    "These are the counters that the indexer shows its users. It writes the totals; every run "
    "adds\n"
    "what it has finished. 'keldothumbctl status' shows what is present and what is missing.\n";

// How much there is to do, and how much is done.
struct Counter {
  int total = 0;
  int completed = 0;

  // The part that is done; 0 without a total.
  [[nodiscard]] double Fraction() const {
    return total == 0 ? 0 : static_cast<double>(completed) / static_cast<double>(total);
  }
};

// The counters by their names.
using Counters = std::array<std::pair<const char*, Counter>, 3>;

std::string Percent(const Counter& counter) {
  constexpr double kWhole = 100;
  if (counter.total == 0) return "-";
  return std::to_string(std::lround(std::floor(counter.Fraction() * kWhole))) + " %";
}

Counters ReadCounters(const ProgressReader& read) {
  return {{{"photos", {read(kPhotoProgress, "total"), read(kPhotoProgress, kCompletedKey)}},
           {"thumbnails",
            {read(kPhotoProgress, "total_thumb"), read(kPhotoProgress, kCompletedThumbKey)}},
           {"videos", {read(kVideoProgress, "total"), read(kVideoProgress, kCompletedKey)}}}};
}

int PrintCounters(const Counters& counters, bool json, Console& console) {
  if (json) {
    Json::Value value(Json::objectValue);
    for (const auto& [name, counter] : counters) {
      value[name]["total"] = counter.total;
      value[name]["completed"] = counter.completed;
      value[name]["fraction"] = counter.Fraction();
    }
    console.PrintJson(value);
    return kAllWell;
  }
  std::vector<std::vector<std::string>> rows{{"", "done", "of", ""}};
  bool has_totals = false;
  for (const auto& [name, counter] : counters) {
    has_totals = has_totals || counter.total != 0;
    rows.push_back({name, Grouped(counter.completed), Grouped(counter.total), Percent(counter)});
  }
  console.out() << Table(rows, 0);
  if (!has_totals && !console.style().quiet) {
    console.out() << "\nThe indexer writes the totals; it has not written any yet.\n";
  }
  return kAllWell;
}

}  // namespace

void AddProgressCommand(CLI::App& app, CommandContext& context) {
  const auto json = std::make_shared<bool>(false);
  CLI::App* command = AddCommand(app, context, "progress", "Show the indexer's counters");
  AddJsonOption(*command, *json);
  SetFooter(*command, kExplanation);
  OnRun(*command, context, [&context, json] {
    return PrintCounters(ReadCounters(context.environment.read_progress), *json, context.console);
  });
}

}  // namespace keldo::ctl
