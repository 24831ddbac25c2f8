#include "util/termination.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <functional>
#include <string>

#include "platform/process.h"
#include "process/isolated.h"
#include "process/output.h"
#include "process/process_test_support.h"
#include "support/temp_dir.h"
#include "util/handles.h"

namespace {

using keldo::HoldTermination;
using keldo::LetTerminationIn;
using keldo::WaitForEvents;
using keldo::testing::Eventually;
using keldo::testing::ForkCopy;
using keldo::testing::InCopy;
using keldo::testing::IsGone;
using keldo::testing::PidIn;
using keldo::testing::RunShell;
using keldo::testing::Stopwatch;
using keldo::testing::TempDir;
using keldo::testing::WaitFor;
using keldo::testing::WriteFile;

volatile std::sig_atomic_t handled = 0;

void Count(int /*signal*/) {
  handled = handled + 1;
}

[[noreturn]] void Leave(int /*signal*/) {
  _exit(42);
}

// Everything here changes the process as a whole, so each test runs in a copy, whose result is 0
// when all its expectations hold, else the number of the first that does not.
struct Expectations {
  int failed = 0;
  int number = 0;
  void Expect(bool holds) {
    ++number;
    if (!holds && failed == 0) failed = number;
  }
};

int InHoldingCopy(const std::function<void(Expectations&)>& work) {
  return InCopy([&] {
    HoldTermination();
    std::signal(SIGTERM, Count);
    Expectations expectations;
    work(expectations);
    return expectations.failed;
  });
}

TEST(Termination, IsHeldBackUntilItIsLetIn) {
  EXPECT_EQ(InHoldingCopy([](Expectations& e) {
              LetTerminationIn();
              e.Expect(handled == 0);
              kill(getpid(), SIGTERM);
              e.Expect(handled == 0);
              errno = E2BIG;
              LetTerminationIn();
              e.Expect(handled == 1);
              e.Expect(errno == E2BIG);
              kill(getpid(), SIGTERM);
              e.Expect(handled == 1);
              LetTerminationIn();
              LetTerminationIn();
              e.Expect(handled == 2);
            }),
            0);
}

TEST(Termination, OnlySigtermIsHeldBack) {
  EXPECT_EQ(InHoldingCopy([](Expectations& e) {
              std::signal(SIGINT, Count);
              kill(getpid(), SIGINT);
              e.Expect(handled == 1);
            }),
            0);
}

TEST(Termination, IsLetInWhileWaiting) {
  EXPECT_EQ(InHoldingCopy([](Expectations& e) {
              kill(getpid(), SIGTERM);
              errno = 0;
              e.Expect(WaitForEvents({}, -1) == -1);
              e.Expect(errno == EINTR);
              e.Expect(handled == 1);
              kill(getpid(), SIGTERM);
              e.Expect(handled == 1);
            }),
            0);
}

TEST(WaitForEvents, ReportsWhatIsReadyAndWhenTimeIsUp) {
  std::array<int, 2> ends{-1, -1};
  ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
  const keldo::UniqueFd reading(ends[0]);
  const keldo::UniqueFd writing(ends[1]);
  pollfd event{reading.get(), POLLIN, 0};
  EXPECT_EQ(WaitForEvents({&event, 1}, 0), 0);
  const Stopwatch watch;
  EXPECT_EQ(WaitForEvents({&event, 1}, 1050), 0);
  EXPECT_GE(watch.Seconds(), 1.05);
  EXPECT_LT(watch.Seconds(), 5);
  ASSERT_EQ(write(writing.get(), "x", 1), 1);
  EXPECT_EQ(WaitForEvents({&event, 1}, -1), 1);
  EXPECT_EQ(event.revents, POLLIN);
}

// A program that holds SIGTERM back, does `wait` and gets the signal once `path` holds the process
// id of what it waits for. The handler must run promptly, and what it waited for must end.
void ExpectLetInDuring(const std::string& path, const std::function<void()>& wait) {
  const pid_t program = ForkCopy([&] {
    HoldTermination();
    std::signal(SIGTERM, Leave);
    wait();
    return 1;
  });
  const pid_t awaited = PidIn(path);
  const Stopwatch watch;
  kill(program, SIGTERM);
  const int status = WaitFor(program);
  EXPECT_LT(watch.Seconds(), 1);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 42) << status;
  EXPECT_TRUE(Eventually([&] { return IsGone(awaited); }));
}

TEST(Termination, ComesWhileAProgramRuns) {
  const TempDir dir;
  const std::string path = dir.path() + "/pid";
  ExpectLetInDuring(
      path, [&] { static_cast<void>(RunShell("echo $$ >\"$1\"; exec sleep 1000", {path})); });
}

TEST(Termination, ComesWhileAStreamIsRead) {
  const TempDir dir;
  const std::string path = dir.path() + "/pid";
  const auto open = [&] {
    return KLIBCPopen("/bin/sh", "r", "-c", "echo $$ >\"$1\"; exec sleep 1000", "sh", path.c_str(),
                      nullptr);
  };
  ExpectLetInDuring(path, [&] {
    std::array<char, 8> block{};
    static_cast<void>(keldo::process::StreamReader(open()).Read(block));
  });
}

TEST(Termination, ComesWhileAStreamIsClosed) {
  const TempDir dir;
  const std::string path = dir.path() + "/pid";
  ExpectLetInDuring(path, [&] {
    KLIBCPclose(KLIBCPopen("/bin/sh", "r", "-c", "echo $$ >\"$1\"; exec sleep 1000", "sh",
                           path.c_str(), nullptr));
  });
}

TEST(Termination, ComesWhileIsolatedWorkRuns) {
  const TempDir dir;
  const std::string path = dir.path() + "/pid";
  ExpectLetInDuring(path, [&] {
    static_cast<void>(keldo::process::RunIsolated([&](std::string&) {
      WriteFile(path, std::to_string(getpid()) + "\n");
      return pause();
    }));
  });
}

TEST(Termination, DoesNotDisturbAWait) {
  // This handler returns, and the wait goes on.
  EXPECT_EQ(InHoldingCopy([](Expectations& e) {
              kill(getpid(), SIGTERM);
              e.Expect(RunShell("sleep 0.1; exit 0") == 0);
              e.Expect(handled == 1);
              kill(getpid(), SIGTERM);
              const auto result = keldo::process::RunIsolated([](std::string& output) {
                usleep(100000);
                output = "done";
                return 3;
              });
              e.Expect(result.finished && result.status == 3 && result.output == "done");
              e.Expect(handled == 2);
            }),
            0);
}

TEST(Termination, ReachesIsolatedWorkAtOnce) {
  const TempDir dir;
  const std::string path = dir.path() + "/pid";
  const pid_t program = ForkCopy([&] {
    HoldTermination();
    std::signal(SIGTERM, Count);
    const auto result = keldo::process::RunIsolated([&](std::string&) {
      WriteFile(path, std::to_string(getpid()) + "\n");
      return pause();
    });
    return result.finished ? 1 : 0;
  });
  // The copy must not run the program's handler, which would let the work go on here.
  kill(PidIn(path), SIGTERM);
  const int status = WaitFor(program);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

}  // namespace
