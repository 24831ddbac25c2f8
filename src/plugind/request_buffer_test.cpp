#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "plugind/request.h"

namespace keldo::plugind {
namespace {

// Stands for a line that was too long.
const std::string kTooLong("(too long)");

std::string Shown(const RequestLine& line) {
  return line.too_long ? kTooLong : line.text;
}

std::vector<std::string> All(RequestBuffer& buffer) {
  std::vector<std::string> lines;
  while (const auto line = buffer.Next())
    lines.push_back(Shown(*line));
  return lines;
}

using Lines = std::vector<std::string>;

TEST(RequestBuffer, IsEmptyAtFirst) {
  RequestBuffer buffer;
  EXPECT_EQ(All(buffer), Lines());
  EXPECT_FALSE(buffer.Rest());
}

TEST(RequestBuffer, ReturnsWholeLinesOnly) {
  RequestBuffer buffer;
  buffer.Append("one\ntwo\nthr");
  EXPECT_EQ(All(buffer), (Lines{"one", "two"}));
  buffer.Append("ee\n\n");
  EXPECT_EQ(All(buffer), (Lines{"three", ""}));
  EXPECT_FALSE(buffer.Rest());
}

TEST(RequestBuffer, AcceptsBytesOneByOne) {
  RequestBuffer buffer;
  Lines lines;
  for (const char c : std::string("ab\n\0c\n\xFF", 7)) {
    buffer.Append({&c, 1});
    for (const std::string& line : All(buffer))
      lines.push_back(line);
  }
  EXPECT_EQ(lines, (Lines{"ab", std::string("\0c", 2)}));
  ASSERT_EQ(Shown(*buffer.Rest()), "\xFF");
  EXPECT_FALSE(buffer.Rest());
}

TEST(RequestBuffer, LinesAppendedWhileOthersWaitFollowThem) {
  RequestBuffer buffer;
  buffer.Append("one\ntwo\nthr");
  ASSERT_EQ(Shown(*buffer.Next()), "one");
  buffer.Append("ee\n");
  EXPECT_EQ(All(buffer), (Lines{"two", "three"}));
}

TEST(RequestBuffer, TheLongestLineIsWhole) {
  RequestBuffer buffer;
  const std::string longest(kMaxRequest, 'x');
  buffer.Append(longest);
  EXPECT_EQ(All(buffer), Lines());
  buffer.Append("\n" + longest + "x\nnext\n");
  EXPECT_EQ(All(buffer), (Lines{longest, kTooLong, "next"}));
  buffer.Append(longest);
  EXPECT_EQ(Shown(*buffer.Rest()), longest);
}

TEST(RequestBuffer, ReportsALineThatIsTooLongOnceAndImmediately) {
  RequestBuffer buffer;
  buffer.Append("one\n" + std::string(kMaxRequest + 1, 'x'));
  EXPECT_EQ(All(buffer), (Lines{"one", kTooLong}));
  for (int i = 0; i < 10; ++i) {
    buffer.Append(std::string(kMaxRequest, 'x'));
    EXPECT_EQ(All(buffer), Lines());
  }
  buffer.Append("x\ntwo\n");
  EXPECT_EQ(All(buffer), Lines{"two"});
  EXPECT_FALSE(buffer.Rest());
}

TEST(RequestBuffer, DropsTheRestOfALineThatIsTooLong) {
  RequestBuffer buffer;
  buffer.Append(std::string(kMaxRequest + 1, 'x'));
  EXPECT_EQ(Shown(*buffer.Rest()), kTooLong);
  buffer.Append("rest");
  EXPECT_FALSE(buffer.Rest());
}

}  // namespace
}  // namespace keldo::plugind
