#include "ctl/console.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "util/json_line.h"

namespace keldo::ctl {
namespace {

TEST(ShownNameTest, KeepsReadableNames) {
  for (const char* name : {"/v/a b.jpg", "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x93\xB7", "'\"%s[1]*", ""})
    EXPECT_EQ(ShownName(name), name);
}

TEST(ShownNameTest, EscapesWhatATerminalObeysOrCannotShow) {
  EXPECT_EQ(ShownName("a\nb\tc\rd"), "a\\nb\\tc\\rd");
  EXPECT_EQ(ShownName("\033[31mred"), "\\x1b[31mred");
  EXPECT_EQ(ShownName("\xFF\xC3"), "\\xff\\xc3");
  EXPECT_EQ(ShownName("\xC2\x9B"
                      "2J"),
            "\\xc2\\x9b2J");
  EXPECT_EQ(ShownName("\x7F"), "\\x7f");
  EXPECT_EQ(ShownName("a\\n"), "a\\\\n") << "not to be taken for a line break";
}

TEST(JsonPathTest, IsAlwaysJsonAndKeepsTheBytes) {
  const Json::Value plain = JsonPath("/v/\xC3\xA4");
  EXPECT_EQ(plain["path"], "/v/\xC3\xA4");
  EXPECT_FALSE(plain.isMember("path_bytes"));

  const Json::Value odd = JsonPath("a\xFFz");
  EXPECT_EQ(odd["path"], "a\xEF\xBF\xBDz");
  EXPECT_EQ(odd["path_bytes"], "61ff7a");
  EXPECT_TRUE(IsUtf8(JsonLine(odd)));
}

TEST(NumberTest, IsGroupedInThrees) {
  EXPECT_EQ(Grouped(0), "0");
  EXPECT_EQ(Grouped(999), "999");
  EXPECT_EQ(Grouped(1000), "1,000");
  EXPECT_EQ(Grouped(1234567), "1,234,567");
  EXPECT_EQ(Grouped(-1234), "-1,234");
  EXPECT_EQ(Grouped(-123), "-123");
  EXPECT_EQ(Counted(1, "photo"), "1 photo");
  EXPECT_EQ(Counted(0, "photo"), "0 photos");
  EXPECT_EQ(Counted(2000, "photo"), "2,000 photos");
}

TEST(TableTest, AlignsByCharactersNotBytes) {
  EXPECT_EQ(Table({{"n", "name"}, {"10", "x"}}, 1), " n  name\n10  x\n");
  EXPECT_EQ(Table({{"kind", "n"}, {"S", "1,000"}}, 0), "kind      n\nS     1,000\n");
  EXPECT_EQ(Table({{"\xC3\xA4", "1"}, {"ab", "\033[31m22\033[0m"}}, 0),
            "\xC3\xA4    1\nab  \033[31m22\033[0m\n");
}

TEST(ConsoleTest, UsesColoursOnlyIfEnabled) {
  std::ostringstream out;
  Console console(out, out);
  EXPECT_EQ(console.Coloured(Console::Colour::kRed, "x"), "x");
  ConsoleStyle style;
  style.colour = true;
  console.set_style(style);
  EXPECT_EQ(console.Coloured(Console::Colour::kRed, "x"), "\033[31mx\033[0m");
}

TEST(ConsoleTest, OutputThatCannotBeWrittenIsAFailure) {
  std::ofstream full("/dev/full");
  std::ostringstream err;
  Console console(full, err);
  full << "text";
  EXPECT_EQ(console.Finish(0), 1);
  EXPECT_EQ(err.str(), "keldothumbctl: standard output: cannot be written\n");
  std::ostringstream out;
  EXPECT_EQ(Console(out, err).Finish(0), 0);
}

}  // namespace
}  // namespace keldo::ctl
