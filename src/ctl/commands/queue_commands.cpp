#include "ctl/commands/queue_commands.h"

#include <json/value.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "ctl/commands/work_queue_file.h"

namespace keldo::ctl {
namespace {

constexpr const char* kRunExamples =
    "The queue holds directories with deferred work. A directory leaves the queue when its work "
    "is\n"
    "done; directories that were not reached stay.\n"
    "\n"
    "Examples:\n"
    "  keldothumbctl queue list             what is waiting\n"
    "  keldothumbctl queue run --nice       do the work at low priority\n";

Json::Value JsonListOf(const std::vector<std::string>& entries) {
  Json::Value list(Json::arrayValue);
  for (const std::string& entry : entries)
    list.append(JsonPath(entry));
  return list;
}

void PrintEntries(Console& console, const char* state, const std::vector<std::string>& entries) {
  for (const std::string& entry : entries)
    console.out() << state << ShownName(entry) << "\n";
}

}  // namespace

int ListQueue(const QueuePaths& paths, bool json, Console& console) {
  const std::optional<std::vector<std::string>> in_work = ReadQueue(paths.in_work);
  if (!in_work) return console.Fail(paths.in_work, std::strerror(errno));
  const std::optional<std::vector<std::string>> waiting = ReadQueue(paths.waiting);
  if (!waiting) return console.Fail(paths.waiting, std::strerror(errno));
  if (json) {
    Json::Value value(Json::objectValue);
    value["in_work"] = JsonListOf(*in_work);
    value["waiting"] = JsonListOf(*waiting);
    console.PrintJson(value);
    return kAllWell;
  }
  PrintEntries(console, "in work  ", *in_work);
  PrintEntries(console, "waiting  ", *waiting);
  if (in_work->empty() && waiting->empty() && !console.style().quiet) {
    console.out() << "The queue is empty.\n";
  }
  return kAllWell;
}

void AddQueueCommand(CLI::App& app, CommandContext& context) {
  CLI::App* queue = app.add_subcommand("queue", "Directories with deferred work");
  queue->require_subcommand(1);

  const auto json = std::make_shared<bool>(false);
  CLI::App* list =
      AddCommand(*queue, context, "list", "List the entries that are waiting or in work");
  AddJsonOption(*list, *json);
  OnRun(*list, context, [&context, json] { return ListQueue({}, *json, context.console); });

  const auto settings = std::make_shared<MakeSettings>();
  CLI::App* run = AddCommand(*queue, context, "run", "Do the waiting work");
  AddMakeOptions(*run, *settings);
  run->footer(kRunExamples);
  OnRun(*run, context, [&context, settings] { return RunQueue({}, *settings, context); });
}

}  // namespace keldo::ctl
