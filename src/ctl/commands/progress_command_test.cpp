#include <gtest/gtest.h>
#include <json/value.h>

#include <sstream>
#include <string>
#include <vector>

#include "ctl/commands/command.h"
#include "thumbs/progress.h"
#include "util/json_line.h"

namespace keldo::ctl {
namespace {

struct Counter {
  int total = 0;
  int completed = 0;
};

struct Counters {
  Counter photos;
  Counter thumbnails;
  Counter videos;
};

std::string Printed(const Counters& counters, bool json = false) {
  Environment environment;
  environment.read_progress = [&counters](int kind, const char* name) {
    const std::string key(name);
    const bool is_thumbnails = key.ends_with("_thumb");
    const Counter& photos = is_thumbnails ? counters.thumbnails : counters.photos;
    const Counter& counter = kind == kVideoProgress ? counters.videos : photos;
    return key.starts_with("total") ? counter.total : counter.completed;
  };
  std::ostringstream out;
  std::ostringstream err;
  std::vector<std::string> arguments{"progress"};
  if (json) arguments.emplace_back("--json");
  EXPECT_EQ(RunCommandLine(arguments, environment, out, err), 0);
  EXPECT_EQ(err.str(), "");
  return out.str();
}

TEST(ProgressCommand, ShowsTheCounters) {
  EXPECT_EQ(Printed({{1200, 300}, {7200, 7199}, {0, 0}}),
            "             done     of      \n"
            "photos        300  1,200  25 %\n"
            "thumbnails  7,199  7,200  99 %\n"
            "videos          0      0     -\n");
}

TEST(ProgressCommand, SaysWhoWritesTheTotals) {
  EXPECT_EQ(Printed({{0, 3}, {0, 18}, {0, 0}}),
            "            done  of   \n"
            "photos         3   0  -\n"
            "thumbnails    18   0  -\n"
            "videos         0   0  -\n"
            "\nThe indexer writes the totals; it has not written any yet.\n");
}

TEST(ProgressCommand, PrintsTheSameAsJson) {
  Json::Value value;
  ASSERT_TRUE(ParseJsonObject(Printed({{1200, 300}, {8, 2}, {0, 5}}, true), value));
  EXPECT_EQ(value["photos"]["total"], 1200);
  EXPECT_EQ(value["photos"]["completed"], 300);
  EXPECT_EQ(value["photos"]["fraction"], 0.25);
  EXPECT_EQ(value["thumbnails"]["completed"], 2);
  EXPECT_EQ(value["videos"]["completed"], 5);
  EXPECT_EQ(value["videos"]["fraction"], 0.0);
}

}  // namespace
}  // namespace keldo::ctl
