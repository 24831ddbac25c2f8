#include "process/output.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <thread>

#include "util/files.h"
#include "util/handles.h"

namespace keldo::process {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr seconds kLong{60};

ProgramOutput Shell(const std::string& script, milliseconds deadline = kLong) {
  return RunForOutput("/bin/sh", {"-c", script}, deadline);
}

// A pipe.
struct Pipe {
  Pipe() {
    std::array<int, 2> ends{-1, -1};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) return;
    reading.reset(ends[0]);
    writing.reset(ends[1]);
  }
  void Write(const std::string& text) const { EXPECT_TRUE(WriteAll(writing.get(), text)); }

  UniqueFd reading;
  UniqueFd writing;
};

std::vector<std::string> ReadLines(StreamReader reader, std::size_t longest) {
  std::vector<std::string> lines;
  while (const std::optional<std::string> line = reader.ReadLine(longest))
    lines.push_back(*line);
  return lines;
}

// The lines of an output that ends after `text`.
std::vector<std::string> LinesOf(const std::string& text, std::size_t longest = 255) {
  Pipe pipe;
  pipe.Write(text);
  pipe.writing.reset();
  return ReadLines({pipe.reading.get(), Clock::now() + kLong}, longest);
}

TEST(StreamReader, ReadsWhatThereIsUpToTheEnd) {
  Pipe pipe;
  std::array<char, 4> block{};
  StreamReader reader(pipe.reading.get(), Clock::now() + kLong);
  pipe.Write("a\nbcde");
  pipe.writing.reset();
  EXPECT_EQ(reader.Read(block), 4);
  EXPECT_EQ(std::string(block.data(), 4), "a\nbc");
  EXPECT_EQ(reader.Read(block), 2);
  EXPECT_EQ(reader.Read(block), 0);
  EXPECT_EQ(reader.Read(block), 0);
}

TEST(StreamReader, LinesAreReadOneByOne) {
  EXPECT_THAT(LinesOf("one\ntwo\n\nlast"), ElementsAre("one\n", "two\n", "\n", "last"));
  EXPECT_THAT(LinesOf("one\n"), ElementsAre("one\n"));
  EXPECT_THAT(LinesOf(""), ElementsAre());
}

TEST(StreamReader, ALineThatArrivesInPiecesIsOneLine) {
  Pipe pipe;
  pipe.Write("tw");
  std::thread writer([&] {
    std::this_thread::sleep_for(milliseconds(50));
    pipe.Write("o\n");
    pipe.writing.reset();
  });
  EXPECT_THAT(ReadLines({pipe.reading.get(), Clock::now() + kLong}, 255), ElementsAre("two\n"));
  writer.join();
}

TEST(StreamReader, LongLinesAreCut) {
  EXPECT_THAT(LinesOf("abcdefgh\nij\n", 3), ElementsAre("abc", "def", "gh\n", "ij\n"));
  EXPECT_THAT(LinesOf("abc\nd", 3), ElementsAre("abc", "\n", "d"));
  EXPECT_THAT(LinesOf("a\n", 1), ElementsAre("a", "\n"));
  const auto lines = LinesOf(std::string(20000, 'x'), 8999);
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[0], std::string(8999, 'x'));
  EXPECT_EQ(lines[2], std::string(2002, 'x'));
}

TEST(StreamReader, TheDeadlineEndsTheOutput) {
  const Pipe pipe;
  pipe.Write("line\nhalf");
  const auto begin = Clock::now();
  EXPECT_THAT(ReadLines({pipe.reading.get(), begin + milliseconds(100)}, 255),
              ElementsAre("line\n", "half"));
  EXPECT_GE(Clock::now() - begin, milliseconds(100));
  std::array<char, 4> block{};
  EXPECT_EQ(StreamReader(pipe.reading.get(), begin).Read(block), -1);
}

TEST(StreamReader, TheDeadlineEndsAnOutputThatNeverStops) {
  const UniqueFd zeros(open("/dev/zero", O_RDONLY | O_CLOEXEC));
  StreamReader reader(zeros.get(), Clock::now() + milliseconds(100));
  std::array<char, 4096> block{};
  ssize_t count = 1;
  while (count > 0)
    count = reader.Read(block);
  EXPECT_EQ(count, -1);
}

TEST(StreamReader, WhatCannotBeReadIsAFailure) {
  const UniqueFd directory(open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  std::array<char, 4> block{};
  EXPECT_EQ(StreamReader(directory.get(), Clock::now() + kLong).Read(block), -1);
}

TEST(TakeInteger, ReadsAsScanfDoes) {
  for (const char* text : {"",
                           " ",
                           "4",
                           "4000 x 3000",
                           " \t\n\v\f\r42x",
                           "-7",
                           "+7",
                           "+-7",
                           "-+7",
                           "--7",
                           "- 7",
                           "+",
                           "-",
                           "x1",
                           "0x10",
                           "007",
                           "2147483647",
                           "2147483648",
                           "4294967297",
                           "-2147483649",
                           "9223372036854775807",
                           "9223372036854775808",
                           "-99999999999999999999",
                           "1234.56"}) {
    int expected = 0;
    int length = 0;
    const bool found = std::sscanf(text, "%d%n", &expected, &length) == 1;  // NOLINT
    std::string_view rest = text;
    const std::optional<int> number = TakeInteger(rest);
    EXPECT_EQ(number.has_value(), found) << text;
    if (!found) continue;
    EXPECT_EQ(number, expected) << text;
    EXPECT_EQ(rest, text + length) << text;
  }
}

TEST(ProgramOutput, HasBothStreamsAndTheStatus) {
  const ProgramOutput output = Shell("echo; echo out; echo err >&2; exit 3");
  EXPECT_EQ(output.problem, "");
  EXPECT_EQ(output.status, 3);
  EXPECT_THAT(output.text, HasSubstr("out\n"));
  EXPECT_THAT(output.text, HasSubstr("err\n"));
  EXPECT_EQ(output.FirstLine(), "out");
  EXPECT_EQ(Shell("kill -9 $$").status, 137);
  EXPECT_EQ(ProgramOutput().FirstLine(), "");
}

TEST(ProgramOutput, ReportsAMissingProgram) {
  EXPECT_EQ(RunForOutput("/none/program", {}, kLong).problem, "No such file or directory");
}

TEST(ProgramOutput, AProgramThatHangsIsKilled) {
  for (const char* script : {"echo said; exec sleep 60", "sleep 60", "exec >&- 2>&-; exec sleep 60",
                             "sleep 60 & echo said"}) {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(Shell(script, milliseconds(200)).problem, "does not come to an end") << script;
    EXPECT_LT(std::chrono::steady_clock::now() - begin, seconds(30)) << script;
  }
}

TEST(ProgramOutput, ALongOutputIsCutOff) {
  const ProgramOutput output = Shell("head -c 3000000 /dev/zero");
  EXPECT_EQ(output.status, 0);
  EXPECT_LT(output.text.size(), 1'100'000U);
}

}  // namespace
}  // namespace keldo::process
