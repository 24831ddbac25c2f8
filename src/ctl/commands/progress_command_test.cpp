#include <gtest/gtest.h>
#include <json/value.h>

#include <sstream>
#include <string>

#include "ctl/commands/progress_report.h"
#include "util/json_line.h"

namespace keldo::ctl {
namespace {

std::string Printed(const Counters& counters, bool json = false) {
  std::ostringstream out;
  std::ostringstream err;
  Console console(out, err);
  EXPECT_EQ(PrintCounters(counters, json, console), 0);
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
