#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <csignal>
#include <string>
#include <vector>

#include "fakes/syslog_capture.h"
#include "platform/process.h"
#include "process/output.h"
#include "process/process_test_support.h"
#include "support/temp_dir.h"

namespace {

using keldo::process::StreamReader;
using keldo::testing::CountDescriptors;
using keldo::testing::Eventually;
using keldo::testing::HasNoChildren;
using keldo::testing::InCopy;
using keldo::testing::IsGone;
using keldo::testing::OneSecondDeadline;
using keldo::testing::PidIn;
using keldo::testing::Stopwatch;
using keldo::testing::TempDir;
using testing::IsEmpty;

FILE* OpenShell(const char* mode, const std::string& script, const std::string& argument = {}) {
  return KLIBCPopen("/bin/sh", mode, "-c", script.c_str(), "sh", argument.c_str(), nullptr);
}

// Everything that the stream gives, as the program reads it.
std::string ReadAll(FILE* stream) {
  std::string text;
  StreamReader reader(stream);
  std::array<char, 65536> block{};
  for (ssize_t count = reader.Read(block); count > 0; count = reader.Read(block))
    text.append(block.data(), static_cast<std::size_t>(count));
  return text;
}

class PopenTest : public testing::Test {
 protected:
  PopenTest() { keldo::testing::ClearSyslog(); }
  void TearDown() override {
    EXPECT_TRUE(HasNoChildren());
    EXPECT_THAT(keldo::testing::CapturedSyslog(), IsEmpty());
  }

  [[nodiscard]] std::string PathOf(const char* name) const { return dir_.path() + "/" + name; }

 private:
  TempDir dir_;
};

TEST_F(PopenTest, TheModeSaysWhichOutputIsRead) {
  for (const auto& [mode, expected] : std::vector<std::pair<const char*, std::string>>{
           {"r", "output\n"}, {"rB", "output\n"}, {"rE", "error\n"}}) {
    FILE* stream = OpenShell(mode, "echo output; echo error >&2");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(ReadAll(stream), expected) << mode;
    EXPECT_EQ(KLIBCPclose(stream), 0);
  }
}

TEST_F(PopenTest, TheOtherOutputAndTheInputAreDevNull) {
  const std::string look = "readlink /proc/$$/fd/0 /proc/$$/fd/";
  FILE* stream = OpenShell("r", look + "2; true");
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(ReadAll(stream), "/dev/null\n/dev/null\n");
  EXPECT_EQ(KLIBCPclose(stream), 0);
  stream = OpenShell("rE", "exec 3>&1; { " + look + "3; true; } >&2");
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(ReadAll(stream), "/dev/null\n/dev/null\n");
  EXPECT_EQ(KLIBCPclose(stream), 0);
}

TEST_F(PopenTest, WorksWhereOurStandardDescriptorsAreClosed) {
  for (unsigned closed = 1; closed < 8; ++closed) {
    EXPECT_EQ(InCopy([closed] {
                for (int fd = 0; fd < 3; ++fd)
                  if ((closed >> fd & 1) != 0) close(fd);
                FILE* output = OpenShell("r", "echo output; echo error >&2");
                FILE* errors = OpenShell("rE", "echo output; echo error >&2");
                const bool right = ReadAll(output) == "output\n" && ReadAll(errors) == "error\n";
                return right && KLIBCPclose(output) == 0 && KLIBCPclose(errors) == 0 ? 0 : 1;
              }),
              0)
        << closed;
  }
}

TEST_F(PopenTest, AMissingProgramGivesNoStream) {
  EXPECT_EQ(KLIBCPopen("/nonexistent/dcraw", "r", "-i", nullptr), nullptr);
}

TEST_F(PopenTest, TheArgumentVectorStartsWithThePathAndIsPassedByteForByte) {
  FILE* stream =
      KLIBCPopen("/usr/bin/printf", "r", "%s|", "new\nline", "", "\xff q'\"", "*", nullptr);
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(ReadAll(stream), "new\nline||\xff q'\"|*|");
  EXPECT_EQ(KLIBCPclose(stream), 0);
  stream = KLIBCPopen("/bin/cat", "r", "/proc/self/cmdline", nullptr);
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(ReadAll(stream), std::string("/bin/cat\0/proc/self/cmdline\0", 28));
  EXPECT_EQ(KLIBCPclose(stream), 0);
}

TEST_F(PopenTest, ALargeOutputArrivesByteForByte) {
  std::string content;
  for (unsigned i = 0; content.size() < std::size_t{10} << 20; ++i)
    content.push_back(static_cast<char>(i * 2654435761U >> 24));
  keldo::testing::WriteFile(PathOf("content"), content);
  FILE* stream = KLIBCPopen("/bin/cat", "rB", PathOf("content").c_str(), nullptr);
  ASSERT_NE(stream, nullptr);
  EXPECT_TRUE(ReadAll(stream) == content);
  EXPECT_EQ(KLIBCPclose(stream), 0);
}

TEST_F(PopenTest, ClosingKillsTheGroupAtOnceWhereTheDeadlineHasPassed) {
  const OneSecondDeadline deadline;
  const Stopwatch watch;
  FILE* stream =
      OpenShell("r", "sleep 1000 & echo $! >\"$1\"; echo line; printf half; wait", PathOf("pid"));
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(ReadAll(stream), "line\nhalf");
  EXPECT_GE(watch.Seconds(), 1);
  const int status = KLIBCPclose(stream);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
  EXPECT_LT(watch.Seconds(), 2.5) << "no further wait for a child that overran";
  const pid_t grandchild = PidIn(PathOf("pid"));
  EXPECT_TRUE(Eventually([&] { return IsGone(grandchild); }));
}

TEST_F(PopenTest, ClosingEndsAChildThatStillWrites) {
  const Stopwatch watch;
  FILE* stream = OpenShell("r", "exec cat /dev/zero");
  ASSERT_NE(stream, nullptr);
  std::array<char, 16> block{};
  EXPECT_GT(StreamReader(stream).Read(block), 0);
  const int status = KLIBCPclose(stream);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGPIPE) << status;
  EXPECT_LT(watch.Seconds(), 1.5);
}

TEST_F(PopenTest, ClosingEndsAChildThatOnlySleeps) {
  const Stopwatch watch;
  FILE* stream = OpenShell("r", "echo $$ >\"$1\"; exec sleep 1000", PathOf("pid"));
  ASSERT_NE(stream, nullptr);
  const pid_t child = PidIn(PathOf("pid"));
  EXPECT_TRUE(WIFSIGNALED(KLIBCPclose(stream)));
  EXPECT_TRUE(IsGone(child));
  EXPECT_LT(watch.Seconds(), 5);
}

TEST_F(PopenTest, ClosingGivesTheWaitStatus) {
  FILE* stream = OpenShell("r", "echo line; exit 3");
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(ReadAll(stream), "line\n");
  const int status = KLIBCPclose(stream);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 3);
}

TEST_F(PopenTest, AForeignStreamIsRefusedAndLeftOpen) {
  FILE* foreign = std::fopen("/etc/passwd", "re");
  ASSERT_NE(foreign, nullptr);
  EXPECT_EQ(KLIBCPclose(foreign), -1);
  EXPECT_NE(std::fgetc(foreign), EOF);
  EXPECT_EQ(std::fclose(foreign), 0);
}

TEST_F(PopenTest, ManyStreamsLeaveNoDescriptorAndNoZombie) {
  const auto run = [] {
    FILE* stream = OpenShell("r", "echo line");
    const std::string text = ReadAll(stream);
    KLIBCPclose(stream);
    return text;
  };
  EXPECT_EQ(run(), "line\n");
  const auto before = CountDescriptors();
  for (int i = 0; i < 200; ++i) {
    ASSERT_EQ(run(), "line\n");
    ASSERT_EQ(KLIBCPopen("/nonexistent", "r", nullptr), nullptr);
  }
  EXPECT_EQ(CountDescriptors(), before);
  EXPECT_TRUE(HasNoChildren());
}

}  // namespace
