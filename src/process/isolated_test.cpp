#include "process/isolated.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "process/process_test_support.h"
#include "support/temp_dir.h"

namespace {

using keldo::process::IsolatedResult;
using keldo::process::RunIsolated;
using keldo::testing::CountDescriptors;
using keldo::testing::Eventually;
using keldo::testing::ForkCopy;
using keldo::testing::HasNoChildren;
using keldo::testing::InCopy;
using keldo::testing::IsGone;
using keldo::testing::OneSecondDeadline;
using keldo::testing::PidIn;
using keldo::testing::ReadFile;
using keldo::testing::Stopwatch;
using keldo::testing::TempDir;
using keldo::testing::WaitFor;
using keldo::testing::WriteFile;

constexpr std::size_t kLongestOutput = 65536;
constexpr int kSomeDescriptors = 64;

class IsolatedTest : public testing::Test {
 protected:
  void TearDown() override { EXPECT_TRUE(HasNoChildren()); }

  [[nodiscard]] std::string PathOf(const char* name) const { return dir_.path() + "/" + name; }

 private:
  TempDir dir_;
};

void ExpectNotFinished(const std::function<int(std::string&)>& work) {
  const IsolatedResult result = RunIsolated([&work](std::string& output) {
    output = "half done";
    return work(output);
  });
  EXPECT_FALSE(result.finished);
  EXPECT_EQ(result.status, -1);
  EXPECT_EQ(result.output, "");
}

TEST_F(IsolatedTest, GivesStatusAndOutput) {
  for (const int status : {0, 1, 125, 255}) {
    const IsolatedResult result = RunIsolated([status](std::string& output) {
      output = std::string("a\0b\xff\n", 5);
      return status;
    });
    EXPECT_TRUE(result.finished);
    EXPECT_EQ(result.status, status);
    EXPECT_EQ(result.output, std::string("a\0b\xff\n", 5));
  }
}

TEST_F(IsolatedTest, WorkWithoutOutputFinishesToo) {
  const IsolatedResult result = RunIsolated([](std::string&) { return 7; });
  EXPECT_TRUE(result.finished);
  EXPECT_EQ(result.status, 7);
  EXPECT_EQ(result.output, "");
}

TEST_F(IsolatedTest, CutsAnOutputOfMoreThan64KiB) {
  for (const std::size_t more : {0U, 1U, 1000000U}) {
    const IsolatedResult result = RunIsolated([more](std::string& output) {
      output = std::string(kLongestOutput, 'x') + std::string(more, 'y');
      return 0;
    });
    EXPECT_TRUE(result.finished);
    EXPECT_TRUE(result.output == std::string(kLongestOutput, 'x')) << result.output.size();
  }
}

TEST_F(IsolatedTest, MemoryIsACopyButFilesStay) {
  int changed = 0;
  const std::string path = PathOf("written");
  const IsolatedResult result = RunIsolated([&](std::string&) {
    changed = 1;
    WriteFile(path, "content");
    return 0;
  });
  EXPECT_TRUE(result.finished);
  EXPECT_EQ(changed, 0);
  EXPECT_EQ(ReadFile(path), "content");
}

TEST_F(IsolatedTest, AnExceptionEndsTheCopyOnly) {
  ExpectNotFinished([](std::string&) -> int { throw std::runtime_error("damaged"); });
  ExpectNotFinished([](std::string&) -> int { throw 1; });
}

#if !defined(__SANITIZE_ADDRESS__)  // Its shadow memory is larger than any limit.
TEST_F(IsolatedTest, MemoryIsLimited) {
  ExpectNotFinished([](std::string&) {
    return static_cast<int>(std::vector<char>(std::size_t{1} << 44).size());
  });
  const IsolatedResult result = RunIsolated([](std::string& output) {
    const auto machine = static_cast<std::size_t>(sysconf(_SC_PHYS_PAGES)) *
                         static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    // Never touched, so that only the limit can refuse it.
    void* all = std::malloc(std::max(machine, std::size_t{2} << 30));  // NOLINT
    output = all == nullptr ? "refused" : "granted";
    std::free(all);  // NOLINT
    return 0;
  });
  EXPECT_EQ(result.output, "refused");
}
#endif

TEST_F(IsolatedTest, ACrashEndsTheCopyOnly) {
  for (const int signal : {SIGSEGV, SIGABRT, SIGBUS, SIGFPE, SIGKILL, SIGTERM}) {
    ExpectNotFinished([signal](std::string&) {
      // A sanitizer's handler would write a report.
      std::signal(signal, SIG_DFL);
      raise(signal);
      return 0;
    });
  }
  ExpectNotFinished([](std::string&) -> int { _exit(0); });
}

TEST_F(IsolatedTest, AnEndlessLoopEndsAtTheDeadline) {
  const OneSecondDeadline deadline;
  const Stopwatch watch;
  ExpectNotFinished([](std::string&) {
    const volatile bool endless = true;
    while (endless) {
    }
    return 0;
  });
  EXPECT_GE(watch.Seconds(), 1);
  EXPECT_LT(watch.Seconds(), 5);
}

TEST_F(IsolatedTest, ACopyThatWritesWithoutEndIsCutOff) {
  const keldo::testing::ScopedEnvironment deadline("KELDO_CHILD_DEADLINE_SECONDS", "5");
  std::set<int> ours;
  for (int fd = 0; fd < kSomeDescriptors; ++fd)
    if (fcntl(fd, F_GETFD) >= 0) ours.insert(fd);
  const Stopwatch watch;
  ExpectNotFinished([&ours](std::string&) {
    // What a library with damaged memory might do with the one descriptor that leads to us.
    const std::string block(4096, 'R');
    for (int fd = 0; fd < kSomeDescriptors; ++fd)
      while (!ours.contains(fd) && write(fd, block.data(), block.size()) > 0) {
      }
    return 0;
  });
  EXPECT_LT(watch.Seconds(), 4) << "the deadline ended it, not the size";
}

TEST_F(IsolatedTest, TheCopyDiesWhenItsParentIsKilled) {
  const std::string path = PathOf("pid");
  const pid_t parent = ForkCopy([&] {
    return RunIsolated([&](std::string&) {
             WriteFile(path, std::to_string(getpid()) + "\n");
             return pause();
           })
        .status;
  });
  const pid_t copy = PidIn(path);
  kill(parent, SIGKILL);
  WaitFor(parent);
  EXPECT_TRUE(Eventually([&] { return IsGone(copy); }));
}

TEST_F(IsolatedTest, FinishesWhereSigchldIsIgnored) {
  EXPECT_EQ(InCopy([] {
              std::signal(SIGCHLD, SIG_IGN);
              return RunIsolated([](std::string&) { return 42; }).status;
            }),
            42);
}

TEST_F(IsolatedTest, ManyRunsLeaveNoDescriptorAndNoZombie) {
  const auto before = CountDescriptors();
  for (int i = 0; i < 200; ++i)
    ASSERT_EQ(RunIsolated([i](std::string&) { return i; }).status, i);
  EXPECT_EQ(CountDescriptors(), before);
  EXPECT_TRUE(HasNoChildren());
}

}  // namespace
