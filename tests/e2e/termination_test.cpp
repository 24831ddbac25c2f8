// SIGTERM where a run spends its time, and at any system call.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <future>
#include <iostream>
#include <string>

#include "e2e/fixtures.h"
#include "e2e/waiting.h"
#include "support/images.h"

namespace keldo::testing {
namespace {

using std::chrono::steady_clock;
using ::testing::IsEmpty;

constexpr const char* kPidFile = "/var/run/keldothumb.pid";

// Sends SIGTERM now. The run and everything that it started must end at once: within a second on
// an idle machine. What they would wait for otherwise takes minutes.
RunResult Terminate(Running& running) {
  const auto start = steady_clock::now();
  running.Signal(SIGTERM);
  RunResult run = running.Finish();
  EXPECT_LT(steady_clock::now() - start, std::chrono::seconds(20));
  EXPECT_THAT(run.survivors, IsEmpty());
  return run;
}

void ExpectTerminated(const Sandbox& box, const RunResult& run) {
  EXPECT_EQ(run.exit_status, 1);
  EXPECT_EQ(run.signal, 0);
  EXPECT_TRUE(box.Exists(kPidFile)) << "the run's own pid file stays";
}

TEST(TerminationTest, StopsTheConverter) {
  Sandbox box;
  box.AddPhoto("a.png");
  box.Script("convert-thumb", "hang\n");
  // The program is the second process in the sandbox.
  box.Write("/var/run/keldothumb.2.pid", "2\n");
  box.Write("/var/run/keldothumb.1.pid", "1\n");
  const auto running = box.Start();
  WaitForInvocations(box, 1);
  ExpectTerminated(box, Terminate(*running));
  EXPECT_FALSE(box.Exists("/var/run/keldothumb.2.pid"));
  EXPECT_TRUE(box.Exists("/var/run/keldothumb.1.pid")) << "the pid file of another process";
  EXPECT_THAT(box.List(MetadataOf("a.png")), IsEmpty()) << "no thumbnail, no marker";
}

TEST(TerminationTest, StopsTheConvertersOwnChildren) {
  Sandbox box;
  box.AddPhoto("a.png");
  box.Script("convert-thumb", "grandchild\ngrandchild\nhang\n");
  const auto running = box.Start();
  WaitForInvocations(box, 1);
  ExpectTerminated(box, Terminate(*running));
}

TEST(TerminationTest, StopsTheConverterOfTheCodecPackage) {
  Sandbox box;
  box.AddPhoto("a.png");
  box.InstallCodecPackage();
  box.Script("convert", "hang\n");
  const auto running = box.Start();
  WaitForInvocations(box, 1);
  ExpectTerminated(box, Terminate(*running));
}

TEST(TerminationTest, StopsDjpeg) {
  Sandbox box;
  box.AddPhoto("a.jpg", JpegHeaderOf(5000, 4000));
  box.Script("djpeg", "hang\n");
  const auto running = box.Start();
  WaitForInvocations(box, 1);
  ExpectTerminated(box, Terminate(*running));
}

TEST(TerminationTest, StopsDcraw) {
  Sandbox box;
  box.AddPhoto("a.x3f", "x");
  box.Script("dcraw", "stdout bytes\nhang\n");
  const auto running = box.Start();
  WaitForInvocations(box, 1);
  ExpectTerminated(box, Terminate(*running));
}

TEST(TerminationTest, DoesNotWaitForTheDaemon) {
  Sandbox box;
  box.AddPhoto("a.png");
  std::promise<void> asked;
  std::promise<void> answer;
  box.StartDaemon([&](const std::string&) {
    asked.set_value();
    answer.get_future().wait();
    return "";
  });
  const auto running = box.Start();
  asked.get_future().wait();
  ExpectTerminated(box, Terminate(*running));
  answer.set_value();
}

TEST(TerminationTest, RemainingPidFileIsReplacedByTheNextRun) {
  Sandbox box;
  box.AddPhoto("a.png");
  box.Script("convert-thumb", "hang\n");
  const auto running = box.Start();
  WaitForInvocations(box, 1);
  ExpectTerminated(box, Terminate(*running));
  box.Script("convert-thumb", "outputs jpeg\n");
  EXPECT_EQ(box.RunOn().exit_status, 0);
  EXPECT_FALSE(box.Exists(kPidFile));
  EXPECT_EQ(box.List(MetadataOf("a.png")), ThumbNames("XL B M L SM"));
}

TEST(TerminationTest, OtherProcessesAreLeftAlone) {
  Sandbox box;
  box.AddPhoto("a.png");
  box.Script("convert-thumb", "hang\n");
  // A shell that starts the program, terminates it, and survives to report it.
  const RunResult run = RunFromShell(box, "kill -TERM $!");
  EXPECT_EQ(run.standard_output, "1\n");
}

struct Tally {
  int terminated = 0;
  int finished = 0;
  int too_early = 0;
};

// Terminates a run on two photos at every `step`th system call from the `first` on.
Tally TerminateAtCalls(long first, long step) {
  Sandbox box;
  box.AddPhoto("a.jpg", JpegHeaderOf(5000, 4000));
  box.AddPhoto("b.png");
  box.StartDaemon(AnswerVersion(0));
  box.Script("convert-thumb", "outputs halves\n");
  const long calls = box.RunInterrupted({}).system_calls;
  EXPECT_GT(calls, 100);

  Tally tally;
  for (long call = first; call <= calls; call += step) {
    SCOPED_TRACE("system call " + std::to_string(call));
    box.Remove("/volume1/photo/@eaDir");
    box.Remove(kPidFile);
    const RunResult run = box.RunInterrupted({SIGTERM, call});
    EXPECT_THAT(run.survivors, IsEmpty());
    // Until the program blocks SIGTERM, the signal ends it like any other program. It has not
    // started any work at that point.
    const bool too_early = run.signal == SIGTERM && !box.Exists(kPidFile);
    if (!too_early) {
      EXPECT_EQ(run.signal, 0);
      EXPECT_EQ(run.exit_status, box.Exists(kPidFile) ? 1 : 0);
      ++(run.exit_status == 0 ? tally.finished : tally.terminated);
    }
    tally.too_early += too_early ? 1 : 0;
    EXPECT_THAT(run.log, IsEmpty());
    ExpectNoBrokenThumbnail(box, MetadataOf("a.jpg"));
    ExpectNoBrokenThumbnail(box, MetadataOf("b.png"));
  }
  return tally;
}

TEST(TerminationTest, AtAnySystemCall) {
  constexpr long kStep = 4;
  auto other = std::async(std::launch::async, TerminateAtCalls, 1, kStep);
  const Tally first = TerminateAtCalls(1 + kStep / 2, kStep);
  const Tally second = other.get();
  std::cout << first.terminated + second.terminated << " terminated, "
            << first.finished + second.finished << " had finished, "
            << first.too_early + second.too_early << " had not begun\n";
  EXPECT_GT(first.terminated, 0);
  EXPECT_GT(second.terminated, 0);
}

}  // namespace
}  // namespace keldo::testing
