#include "process/child.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <optional>
#include <string>
#include <utility>

#include "process/output.h"
#include "process/process_test_support.h"
#include "support/temp_dir.h"

namespace {

using keldo::Clock;
using keldo::UniqueFd;
using keldo::process::Child;
using keldo::process::ChildPlan;
using keldo::process::Group;
using keldo::testing::Eventually;
using keldo::testing::ForkCopy;
using keldo::testing::HasNoChildren;
using keldo::testing::InCopy;
using keldo::testing::IsGone;
using keldo::testing::PidIn;
using keldo::testing::ReadFile;
using keldo::testing::RunShell;
using keldo::testing::TempDir;
using keldo::testing::WaitFor;

constexpr std::chrono::seconds kLong{60};
constexpr const char* kNoSignals = "0000000000000000";

std::optional<Child> StartShell(const std::string& script, const std::string& argument = {}) {
  int error = 0;
  return Child::Start({"/bin/sh", {"sh", "-c", script, "sh", argument}}, error);
}

// What the standard descriptors of a child lead to, looked at from outside the child.
std::string ChildsDescriptors(const std::string& path) {
  const int status = RunShell(
      "in=$(readlink /proc/$$/fd/0) out=$(readlink /proc/$$/fd/1) err=$(readlink /proc/$$/fd/2)\n"
      "echo \"$in $out $err\" >\"$1\"",
      {path});
  return status == 0 ? ReadFile(path) : "failed";
}

class ChildTest : public testing::Test {
 protected:
  void TearDown() override { EXPECT_TRUE(HasNoChildren()); }

  [[nodiscard]] std::string PathOf(const char* name) const { return dir_.path() + "/" + name; }

 private:
  TempDir dir_;
};

TEST_F(ChildTest, StandardInputIsEmpty) {
  const UniqueFd input(open("/etc/passwd", O_RDONLY | O_CLOEXEC));
  EXPECT_EQ(InCopy([&] {
              dup2(input.get(), STDIN_FILENO);
              return RunShell("test \"$(readlink /proc/$$/fd/0)\" = /dev/null");
            }),
            0);
}

TEST_F(ChildTest, OnlyTheStandardDescriptorsReachTheChild) {
  const UniqueFd inherited(open("/etc/passwd", O_RDONLY));  // NOLINT: without O_CLOEXEC
  const UniqueFd high(fcntl(inherited.get(), F_DUPFD, 900));
  ASSERT_TRUE(high.valid());
  const auto listed = keldo::process::RunForOutput("/bin/ls", {"/proc/self/fd"}, kLong);
  EXPECT_EQ(listed.status, 0);
  EXPECT_EQ(listed.text, "0\n1\n2\n3\n") << "3 is the directory that ls reads";
}

TEST_F(ChildTest, DescriptorsThatWeLackAreDevNull) {
  const UniqueFd out(open(PathOf("out").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  const UniqueFd err(open(PathOf("err").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  for (unsigned closed = 0; closed < 8; ++closed) {
    const std::string path = PathOf(std::to_string(closed).c_str());
    const std::string expected = "/dev/null " + ((closed & 2) != 0 ? "/dev/null" : PathOf("out")) +
                                 " " + ((closed & 4) != 0 ? "/dev/null" : PathOf("err")) + "\n";
    EXPECT_EQ(InCopy([&] {
                dup2(out.get(), STDOUT_FILENO);
                dup2(err.get(), STDERR_FILENO);
                for (int fd = 0; fd < 3; ++fd)
                  if ((closed >> fd & 1) != 0) close(fd);
                return ChildsDescriptors(path) == expected ? 0 : 1;
              }),
              0)
        << closed << " gives " << ReadFile(path);
  }
}

TEST_F(ChildTest, OutputsThatHaveEachOthersNumbersAreNotMixedUp) {
  const UniqueFd out(open(PathOf("out").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  const UniqueFd err(open(PathOf("err").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  EXPECT_EQ(InCopy([&] {
              dup2(err.get(), STDOUT_FILENO);
              dup2(out.get(), STDERR_FILENO);
              ChildPlan plan{"/bin/sh", {"sh", "-c", "echo output; echo error >&2"}};
              std::swap(plan.stdout_fd, plan.stderr_fd);
              int error = 0;
              std::optional<Child> child = Child::Start(plan, error);
              return child && child->WaitUntil(Clock::time_point::max()) ? child->KillAndReap() : 1;
            }),
            0);
  EXPECT_EQ(ReadFile(PathOf("out")), "output\n");
  EXPECT_EQ(ReadFile(PathOf("err")), "error\n");
}

TEST_F(ChildTest, SignalsAreUnblockedAndAtTheirDefaults) {
  EXPECT_EQ(InCopy([&] {
              for (int signal = 1; signal <= SIGRTMAX; ++signal)
                std::signal(signal, SIG_IGN);
              std::signal(SIGUSR2, [](int) {});
              sigset_t all;
              sigfillset(&all);
              sigprocmask(SIG_SETMASK, &all, nullptr);
              return RunShell("grep -E 'Sig(Blk|Ign|Pnd)' /proc/self/status >\"$1\"",
                              {PathOf("signals")});
            }),
            0);
  std::string expected;
  for (const char* set : {"SigPnd", "SigBlk", "SigIgn"})
    expected += std::string(set) + ":\t" + kNoSignals + "\n";
  EXPECT_EQ(ReadFile(PathOf("signals")), expected);
}

TEST_F(ChildTest, OurOwnSignalMaskIsUnchanged) {
  sigset_t before;
  sigprocmask(SIG_SETMASK, nullptr, &before);
  EXPECT_EQ(RunShell("exit 0"), 0);
  sigset_t after;
  sigprocmask(SIG_SETMASK, nullptr, &after);
  for (int signal = 1; signal < SIGRTMIN; ++signal)
    EXPECT_EQ(sigismember(&before, signal), sigismember(&after, signal)) << signal;
}

TEST_F(ChildTest, LeadsAGroupOfItsOwn) {
  ASSERT_EQ(
      RunShell("ps -o pgid= -p $$ >\"$1\"; echo $$ >\"$2\"", {PathOf("group"), PathOf("pid")}), 0);
  EXPECT_EQ(PidIn(PathOf("group")), PidIn(PathOf("pid")));
}

TEST_F(ChildTest, DiesWhenItsParentIsKilled) {
  const std::string path = PathOf("pid");
  const pid_t parent =
      ForkCopy([&] { return RunShell("echo $$ >\"$1\"; exec sleep 1000", {path}); });
  const pid_t child = PidIn(path);
  kill(parent, SIGKILL);
  WaitFor(parent);
  EXPECT_TRUE(Eventually([&] { return IsGone(child); }));
}

// Runs a program in our place; its output is appended to a file.
int RunInOurPlace(ChildPlan plan, const std::string& path) {
  const UniqueFd out(open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
  plan.stdin_fd = STDIN_FILENO;
  plan.stdout_fd = out.get();
  plan.in_our_place = true;
  int error = 0;
  std::optional<Child> child = Child::Start(plan, error);
  return child ? child->Reap() : -1;
}

TEST_F(ChildTest, InOurPlaceItHasOurDescriptorsAndGroup) {
  const UniqueFd inherited(open("/etc/passwd", O_RDONLY));  // NOLINT: without O_CLOEXEC
  const std::string fd = std::to_string(inherited.get());
  const std::string script =
      "readlink /proc/$$/fd/0 /proc/$$/fd/" + fd + "; echo $(ps -o pgid= -p $$)";
  EXPECT_EQ(InCopy([&] {
              dup2(inherited.get(), STDIN_FILENO);
              return RunInOurPlace({"/bin/sh", {"sh", "-c", script}}, PathOf("seen"));
            }),
            0);
  EXPECT_EQ(ReadFile(PathOf("seen")),
            "/etc/passwd\n/etc/passwd\n" + std::to_string(getpgrp()) + "\n");
}

TEST_F(ChildTest, InOurPlaceItHasOurSignalsButSigpipe) {
  EXPECT_EQ(InCopy([&] {
              std::signal(SIGUSR1, SIG_IGN);
              std::signal(SIGPIPE, SIG_IGN);
              std::signal(SIGUSR2, [](int) {});
              sigset_t blocked;
              sigemptyset(&blocked);
              sigaddset(&blocked, SIGHUP);
              sigprocmask(SIG_SETMASK, &blocked, nullptr);
              return RunInOurPlace(
                  {"/bin/grep", {"grep", "-E", "Sig(Blk|Ign)", "/proc/self/status"}},
                  PathOf("seen"));
            }),
            0);
  EXPECT_EQ(ReadFile(PathOf("seen")), "SigBlk:\t0000000000000001\nSigIgn:\t0000000000000200\n");
}

TEST_F(ChildTest, HasTheEnvironmentOfThePlan) {
  ChildPlan plan{"/usr/bin/env", {"env"}};
  plan.environment = {"A=1", "B= 2\n"};
  EXPECT_EQ(RunInOurPlace(plan, PathOf("seen")), 0);
  EXPECT_EQ(ReadFile(PathOf("seen")), "A=1\nB= 2\n\n");
}

TEST_F(ChildTest, AForkedCopyExitsWithWhatItsWorkReturns) {
  const pid_t group = getpgrp();
  std::optional<Child> child =
      Child::Fork(Group::kOurs, [&] { return getpgrp() == group ? 42 : 1; });
  ASSERT_TRUE(child);
  EXPECT_EQ(WEXITSTATUS(child->Reap()), 42);
  child = std::nullopt;
  std::optional<Child> leader =
      Child::Fork(Group::kItsOwn, [] { return getpgrp() == getpid() ? 42 : 1; });
  ASSERT_TRUE(leader);
  EXPECT_EQ(WEXITSTATUS(leader->Reap()), 42);
}

TEST_F(ChildTest, DestroyingAForkedCopyKillsIt) {
  for (const Group group : {Group::kOurs, Group::kItsOwn}) {
    const std::optional<Child> child = Child::Fork(group, [] { return pause(); });
    ASSERT_TRUE(child);
  }
}

TEST_F(ChildTest, ReportsWhyItCannotStart) {
  int error = 0;
  EXPECT_FALSE(Child::Start({"/nonexistent", {"nonexistent"}}, error));
  EXPECT_EQ(error, ENOENT);
  EXPECT_FALSE(Child::Start({"/etc/passwd", {"passwd"}}, error));
  EXPECT_EQ(error, EACCES);
  EXPECT_FALSE(Child::Start({"/bin/true", {"true", std::string(1 << 20, 'x')}}, error));
  EXPECT_EQ(error, E2BIG);
}

TEST_F(ChildTest, GivesTheWaitStatus) {
  std::optional<Child> child = StartShell("exit 3");
  ASSERT_TRUE(child);
  EXPECT_TRUE(child->WaitUntil(Clock::now() + std::chrono::seconds(10)));
  const int status = child->KillAndReap();
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 3);
}

TEST_F(ChildTest, AChildThatStillRunsIsKilled) {
  std::optional<Child> child = StartShell("exec sleep 1000");
  ASSERT_TRUE(child);
  EXPECT_FALSE(child->WaitUntil(Clock::now() + std::chrono::milliseconds(1)));
  const int status = child->KillAndReap();
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(WTERMSIG(status), SIGKILL);
}

TEST_F(ChildTest, DestroyingKillsTheGroup) {
  std::optional<Child> child =
      StartShell("sleep 1000 & echo $! >\"$1\"; wait", PathOf("grandchild"));
  ASSERT_TRUE(child);
  const pid_t grandchild = PidIn(PathOf("grandchild"));
  std::optional<Child> taken(std::move(*child));
  child.reset();
  EXPECT_FALSE(IsGone(grandchild));
  taken.reset();
  EXPECT_TRUE(Eventually([&] { return IsGone(grandchild); }));
}

TEST_F(ChildTest, KillingItWithItsChildrenEndsTheGroupsThatTheyLead) {
  // The child's own child leads a group, and has a child in it.
  std::optional<Child> child = StartShell(
      "setsid sh -c 'sleep 1000 & echo $! >\"$1\"; wait' sh \"$1\" & wait; echo >\"$1.more\"",
      PathOf("grandchild"));
  ASSERT_TRUE(child);
  const pid_t grandchild = PidIn(PathOf("grandchild"));
  child->KillWithChildren();
  EXPECT_TRUE(Eventually([&] { return IsGone(grandchild); }));
  const int status = child->KillAndReap();
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(ReadFile(PathOf("grandchild.more")), "") << "it had no time to see their end";
}

TEST_F(ChildTest, KillingOneThatHasEndedIsHarmless) {
  std::optional<Child> child = StartShell("exit 3");
  ASSERT_TRUE(child);
  EXPECT_TRUE(child->WaitUntil(Clock::now() + std::chrono::seconds(10)));
  child->KillWithChildren();
  EXPECT_EQ(WEXITSTATUS(child->KillAndReap()), 3);
}

std::chrono::seconds DeadlineFor(const char* text) {
  const keldo::testing::ScopedEnvironment environment("KELDO_CHILD_DEADLINE_SECONDS", text);
  return keldo::process::ChildDeadline();
}

TEST(ChildDeadline, IsTenMinutesUnlessTheEnvironmentSaysOtherwise) {
  EXPECT_EQ(keldo::process::ChildDeadline(), std::chrono::seconds(600));
  EXPECT_EQ(DeadlineFor("1"), std::chrono::seconds(1));
  EXPECT_EQ(DeadlineFor("86400"), std::chrono::seconds(86400));
}

TEST(ChildDeadline, IgnoresAnyOtherText) {
  for (const char* text :
       {"", "0", "-1", "86401", "1s", " 1", "1 ", "+1", "1.5", "abc", "99999999999999999999"})
    EXPECT_EQ(DeadlineFor(text), std::chrono::seconds(600)) << '"' << text << '"';
}

}  // namespace
