#include <json/value.h>

#include <algorithm>
#include <memory>
#include <ostream>
#include <utility>

#include "ctl/commands/command.h"
#include "ctl/commands/doctor.h"

namespace keldo::ctl {
namespace {

using Level = CheckResult::Level;

constexpr const char* kExplanation =
    "A problem keeps thumbnails from being made. A warning affects only some photos, or something\n"
    "other than thumbnails. The exit status is 1 when there is a problem.\n";

const char* NameOf(Level level) {
  switch (level) {
    case Level::kOk:
      return "ok";
    case Level::kNote:
      return "note";
    case Level::kWarning:
      return "warning";
    case Level::kProblem:
      break;
  }
  return "problem";
}

std::string Shown(Level level, const Console& console) {
  switch (level) {
    case Level::kOk:
      return console.Coloured(Console::Colour::kGreen, NameOf(level));
    case Level::kNote:
      return NameOf(level);
    case Level::kWarning:
      return console.Coloured(Console::Colour::kYellow, NameOf(level));
    case Level::kProblem:
      break;
  }
  return console.Coloured(Console::Colour::kRed, NameOf(level));
}

void PrintText(const std::vector<CheckResult>& results, Console& console) {
  constexpr std::size_t kTextColumn = 1;
  std::vector<std::vector<std::string>> rows;
  std::vector<std::string> advice;
  for (const CheckResult& result : results) {
    if (console.style().quiet && result.level != Level::kProblem) continue;
    rows.push_back({Shown(result.level, console), result.name + ": " + result.text});
    if (!result.advice.empty()) advice.push_back(result.name + ": " + result.advice);
  }
  console.out() << Table(rows, kTextColumn);
  if (advice.empty()) return;
  console.out() << "\nWhat to do:\n";
  for (const std::string& line : advice)
    console.out() << "  " << line << "\n";
}

void PrintJson(const std::vector<CheckResult>& results, Console& console) {
  Json::Value value(Json::objectValue);
  value["checks"] = Json::Value(Json::arrayValue);
  for (const CheckResult& result : results) {
    Json::Value item(Json::objectValue);
    item["name"] = result.name;
    item["level"] = NameOf(result.level);
    item["text"] = result.text;
    item["advice"] = result.advice;
    value["checks"].append(item);
  }
  console.PrintJson(value);
}

}  // namespace

int RunDoctor(const DoctorPaths& paths, bool json, Console& console) {
  std::vector<CheckResult> results = CheckPrograms(paths);
  for (CheckResult& result : CheckSystem(paths))
    results.push_back(std::move(result));
  if (json) {
    PrintJson(results, console);
  } else {
    PrintText(results, console);
  }
  const bool has_problem =
      std::any_of(results.begin(), results.end(),
                  [](const CheckResult& result) { return result.level == Level::kProblem; });
  return has_problem ? kSomeFailed : kAllWell;
}

void AddDoctorCommand(CLI::App& app, CommandContext& context) {
  const auto json = std::make_shared<bool>(false);
  CLI::App* command = AddCommand(app, context, "doctor",
                                 "Check the programs, files and limits that thumbnails need");
  AddJsonOption(*command, *json);
  SetFooter(*command, kExplanation);
  OnRun(*command, context, [&context, json] {
    DoctorPaths paths;
    paths.keldothumb = context.environment.keldothumb;
    paths.profile = context.environment.profile_path;
    paths.database = context.environment.database_path;
    return RunDoctor(paths, *json, context.console);
  });
}

}  // namespace keldo::ctl
