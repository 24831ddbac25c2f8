#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <syslog.h>

#include <csignal>
#include <string>
#include <vector>

#include "fakes/syslog_capture.h"
#include "platform/process.h"
#include "process/process_test_support.h"
#include "support/temp_dir.h"

namespace {

using keldo::testing::CapturedSyslog;
using keldo::testing::CountDescriptors;
using keldo::testing::HasNoChildren;
using keldo::testing::InCopy;
using keldo::testing::IsGone;
using keldo::testing::LogLine;
using keldo::testing::OneSecondDeadline;
using keldo::testing::PidIn;
using keldo::testing::ReadFile;
using keldo::testing::RunShell;
using keldo::testing::Stopwatch;
using keldo::testing::TempDir;
using KELDOUtils::ProcessRunner;
using testing::ElementsAre;

class ProcessRunnerTest : public testing::Test {
 protected:
  ProcessRunnerTest() { keldo::testing::ClearSyslog(); }
  void TearDown() override { EXPECT_TRUE(HasNoChildren()); }

  [[nodiscard]] std::string PathOf(const char* name) const { return dir_.path() + "/" + name; }

 private:
  TempDir dir_;
};

TEST_F(ProcessRunnerTest, ReturnsZeroForExitStatusZeroOnly) {
  EXPECT_EQ(RunShell("exit 0"), 0);
  EXPECT_NE(RunShell("exit 1"), 0);
  EXPECT_NE(RunShell("exit 127"), 0);
  EXPECT_NE(RunShell("exit 255"), 0);
  EXPECT_EQ(CapturedSyslog().size(), 3U) << "one line a failure";
}

TEST_F(ProcessRunnerTest, AChildKilledByASignalIsAFailure) {
  EXPECT_NE(RunShell("kill -KILL $$"), 0);
  EXPECT_NE(RunShell("kill -TERM $$"), 0);
  EXPECT_EQ(CapturedSyslog().size(), 2U) << "one line a failure";
}

TEST_F(ProcessRunnerTest, LogsHowAChildFailedAndWhatItWorkedOn) {
  EXPECT_NE(RunShell("exit 3", {"/photos/a.jpg"}), 0);
  EXPECT_NE(RunShell("kill -KILL $$", {"/photos/b.jpg"}), 0);
  EXPECT_THAT(
      CapturedSyslog(),
      ElementsAre(
          LogLine{LOG_WARNING, "process:63 [Warning] /bin/sh ended with status 3 on /photos/a.jpg"},
          LogLine{LOG_WARNING,
                  "process:63 [Warning] /bin/sh ended with signal 9 on /photos/b.jpg"}));
}

TEST_F(ProcessRunnerTest, LogsOnceThatAProgramIsMissing) {
  ProcessRunner runner("/nonexistent/convert-thumb", "convert-thumb");
  EXPECT_NE(runner.run(true, false), 0);
  EXPECT_THAT(CapturedSyslog(),
              ElementsAre(LogLine{LOG_ERR,
                                  "process:41 [Error] failed to start /nonexistent/convert-thumb: "
                                  "No such file or directory"}));
}

TEST_F(ProcessRunnerTest, LogsWhyAProgramCannotBeStarted) {
  ProcessRunner runner("/", "directory");
  EXPECT_NE(runner.run(true, false), 0);
  EXPECT_THAT(
      CapturedSyslog(),
      ElementsAre(LogLine{LOG_ERR, "process:41 [Error] failed to start /: Permission denied"}));
}

TEST_F(ProcessRunnerTest, NoShellReadsAFileThatIsNotAProgram) {
  const std::string path = PathOf("text");
  keldo::testing::WriteFile(path, "exit 0\n");
  std::filesystem::permissions(path, std::filesystem::perms::owner_all);
  ProcessRunner runner(path.c_str(), "text");
  EXPECT_NE(runner.run(true, false), 0);
  EXPECT_EQ(CapturedSyslog().size(), 1U);
}

TEST_F(ProcessRunnerTest, AtTheDeadlineTheWholeGroupIsKilled) {
  const OneSecondDeadline deadline;
  const Stopwatch watch;
  EXPECT_NE(RunShell("echo $$ >$1; sleep 1000 & echo $! >$2; wait",
                     {PathOf("child"), PathOf("grandchild")}),
            0);
  EXPECT_GE(watch.Seconds(), 1);
  EXPECT_LT(watch.Seconds(), 5);
  EXPECT_TRUE(IsGone(PidIn(PathOf("child"))));
  const pid_t grandchild = PidIn(PathOf("grandchild"));
  EXPECT_TRUE(keldo::testing::Eventually([&] { return IsGone(grandchild); }));
  EXPECT_THAT(CapturedSyslog(),
              ElementsAre(LogLine{
                  LOG_ERR, "process:52 [Error] killed /bin/sh, which ran for more than 1 s"}));
}

TEST_F(ProcessRunnerTest, WhatAFinishedChildLeftRunningIsKilledToo) {
  EXPECT_EQ(RunShell("sleep 1000 & echo $! >$1", {PathOf("grandchild")}), 0);
  const pid_t grandchild = PidIn(PathOf("grandchild"));
  EXPECT_TRUE(keldo::testing::Eventually([&] { return IsGone(grandchild); }));
}

TEST_F(ProcessRunnerTest, ArgumentBytesArriveUnchanged) {
  const std::vector<std::string> arguments{
      "new\nline", "q'u\"o", "", "\xff\xfe", "a*", "$HOME", "-x", "@y", "back\\slash", " ", "%d"};
  std::string expected;
  for (const std::string& argument : arguments)
    expected.append(argument).push_back('\0');
  const std::string path = PathOf("arguments");
  std::vector<std::string> all{path};
  all.insert(all.end(), arguments.begin(), arguments.end());
  EXPECT_EQ(RunShell("out=$1; shift; printf '%s\\0' \"$@\" >\"$out\"", all), 0);
  EXPECT_EQ(ReadFile(path), expected);
}

TEST_F(ProcessRunnerTest, ArgumentsEndAtTheFirstNullPointer) {
  const std::string path = PathOf("arguments");
  ProcessRunner runner("/bin/sh", "argv0", "-c", "echo \"$0\" \"$@\" >\"$1\"");
  runner.addArguments("zero", path.c_str(), "2", nullptr, "lost");
  runner.addArguments("3", "4", "5", "6", "7", "8", "9", "10", "11");
  EXPECT_EQ(runner.run(true, false), 0);
  EXPECT_EQ(ReadFile(path), "zero " + path + " 2 3 4 5 6 7 8 9 10 11\n");
}

TEST_F(ProcessRunnerTest, TheFirstArgumentIsTheNameThatTheProgramSees) {
  const std::string path = PathOf("name");
  ProcessRunner runner("/bin/sh", "another name", "-c",
                       "tr '\\0' '\\n' </proc/$$/cmdline | head -n1 >\"$1\"", "sh");
  runner.addArguments(path.c_str());
  EXPECT_EQ(runner.run(true, false), 0);
  EXPECT_EQ(ReadFile(path), "another name\n");
}

TEST_F(ProcessRunnerTest, TheSameRunnerRunsAgain) {
  ProcessRunner runner("/bin/sh", "sh", "-c", "exit 0");
  EXPECT_EQ(runner.run(true, false), 0);
  EXPECT_EQ(runner.run(true, false), 0);
}

TEST_F(ProcessRunnerTest, ManyRunsLeaveNoDescriptorAndNoZombie) {
  ASSERT_EQ(RunShell("exit 0"), 0);
  const auto before = CountDescriptors();
  for (int i = 0; i < 100; ++i) {
    ASSERT_EQ(RunShell("exit 0"), 0);
    ProcessRunner missing("/nonexistent", "missing");
    ASSERT_NE(missing.run(true, false), 0);
  }
  EXPECT_EQ(CountDescriptors(), before);
  EXPECT_TRUE(HasNoChildren());
}

// Some service managers and scripts start programs so; the kernel then keeps no exit status.
TEST_F(ProcessRunnerTest, DistinguishesSuccessFromFailureWhereSigchldIsIgnored) {
  EXPECT_EQ(InCopy([] {
              std::signal(SIGCHLD, SIG_IGN);
              const bool correct = RunShell("exit 0") == 0 && RunShell("exit 1") != 0;
              return correct ? 0 : 1;
            }),
            0);
}

}  // namespace
