#include "process/output.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>

#include "support/temp_dir.h"

namespace keldo::ctl {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using ::testing::HasSubstr;

constexpr seconds kLong{60};

ProgramOutput Shell(const std::string& script, milliseconds deadline = kLong) {
  return RunForOutput("/bin/sh", {"-c", script}, deadline);
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

TEST(ProgramOutput, AProgramThatIsMissingIsAProblem) {
  EXPECT_EQ(RunForOutput("/none/program", {}, kLong).problem, "No such file or directory");
}

TEST(ProgramOutput, AProgramThatHangsIsEnded) {
  for (const char* script : {"echo said; exec sleep 60", "sleep 60", "exec >&- 2>&-; exec sleep 60",
                             "sleep 60 & echo said"}) {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(Shell(script, milliseconds(200)).problem, "does not come to an end") << script;
    EXPECT_LT(std::chrono::steady_clock::now() - begin, seconds(30)) << script;
  }
}

TEST(ProgramOutput, AFloodIsCutOff) {
  const ProgramOutput output = Shell("head -c 3000000 /dev/zero");
  EXPECT_EQ(output.status, 0);
  EXPECT_LT(output.text.size(), 1'100'000U);
}

}  // namespace
}  // namespace keldo::ctl
