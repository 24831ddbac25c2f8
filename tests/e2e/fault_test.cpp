// Faults: a killed program, converters that never end, and full disks.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <future>
#include <string>

#include "e2e/fixtures.h"
#include "e2e/waiting.h"
#include "support/images.h"

namespace keldo::testing {
namespace {

using std::chrono::steady_clock;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(FaultTest, KilledProgramTakesItsConverterWithIt) {
  Sandbox box;
  box.AddPhoto("a.png");
  // What it has written when the program is killed is no image yet.
  box.Script("convert-thumb", "outputs rubbish\nhang\n");
  const auto running = box.Start();
  WaitUntil([&] { return !box.List(MetadataOf("a.png")).empty(); });
  running->Signal(SIGKILL);
  const RunResult run = running->Finish();
  EXPECT_EQ(run.signal, SIGKILL);
  EXPECT_THAT(run.survivors, IsEmpty());
  ExpectNoBrokenThumbnail(box, MetadataOf("a.png"));
}

// Kills a run at every `step`th system call from the `first` on and lets two others finish: the
// photos must be unchanged and every thumbnail complete.
void KillAtCalls(long first, long step) {
  Sandbox box;
  const std::string content = JpegHeaderOf(5000, 4000);
  box.AddPhoto("a.jpg", content);
  box.AddPhoto("b.png", content);
  box.StartDaemon(AnswerVersion(0));
  box.Script("convert-thumb", "outputs halves\n");
  const long calls = box.RunInterrupted({}).system_calls;
  EXPECT_GT(calls, 100);
  for (long call = first; call <= calls; call += step) {
    SCOPED_TRACE("system call " + std::to_string(call));
    box.Remove("/volume1/photo/@eaDir");
    box.Remove("/var/spool/conv_progress_photo");
    const RunResult killed = box.RunInterrupted({SIGKILL, call});
    // A run that needs a few calls less to wait for its children may end before.
    EXPECT_TRUE(killed.signal == SIGKILL || killed.exit_status == 0);
    EXPECT_THAT(killed.survivors, IsEmpty());
    for (const char* photo : {"a.jpg", "b.png"})
      ExpectNoBrokenThumbnail(box, MetadataOf(photo));

    for (int i = 0; i < 2; ++i) {
      const RunResult run = box.RunOn();
      EXPECT_EQ(run.exit_status, 0);
      EXPECT_THAT(run.log, IsEmpty());
    }
    for (const char* photo : {"a.jpg", "b.png"}) {
      EXPECT_EQ(box.Read(std::string(kPhotoDir) + "/" + photo), content);
      for (const std::string& name : ThumbNames("XL B M L SM S")) {
        EXPECT_TRUE(DecodeJpeg(box.Read(MetadataOf(photo) + "/" + name))) << photo << name;
      }
    }
  }
}

TEST(FaultTest, NextRunsFinishAfterAKillAtAnySystemCall) {
  constexpr long kStep = 14;
  auto other = std::async(std::launch::async, KillAtCalls, 1, kStep);
  KillAtCalls(1 + kStep / 2, kStep);
  other.get();
}

TEST(FaultTest, RunawayConverterIsKilledWithItsChildren) {
  Sandbox box;
  box.AddPhoto("a.png");
  box.AddPhoto("b.png");
  box.SetEnvironment("KELDO_CHILD_DEADLINE_SECONDS", "1");
  box.StartDaemon(AnswerVersion(0));
  box.Script("convert-thumb",
             "when /volume1/photo/a.png\noutputs jpeg\ngrandchild\nhang\nalways\noutputs jpeg\n");
  const auto start = steady_clock::now();
  const RunResult run = box.RunOn();
  EXPECT_LT(steady_clock::now() - start, std::chrono::seconds(60));
  EXPECT_EQ(run.exit_status, 0);
  EXPECT_THAT(run.survivors, IsEmpty());
  ASSERT_EQ(run.log.size(), 1U);
  EXPECT_THAT(run.log[0].text, ::testing::HasSubstr("/usr/keldo/bin/convert-thumb"));
  EXPECT_TRUE(box.Exists(MarkerOf("a.png", "XL")));
  EXPECT_TRUE(box.Exists(MarkerOf("a.png", "S")));
  EXPECT_FALSE(box.Exists(ThumbOf("a.png", "XL")));
  EXPECT_EQ(box.List(MetadataOf("b.png")), ThumbNames("XL B M L SM"));
}

TEST(FaultTest, ProcessesLeftByAConverterAreKilled) {
  Sandbox box;
  box.AddPhoto("a.png");
  box.Script("convert-thumb", "grandchild\noutputs jpeg\n");
  const RunResult run = box.RunOn();
  EXPECT_THAT(run.survivors, IsEmpty());
  EXPECT_EQ(box.List(MetadataOf("a.png")), ThumbNames("XL B M L SM"));
}

TEST(FaultTest, RunawayConverterInPhaseOneFailsThatPhase) {
  Sandbox box;
  box.AddPhoto("a.png");
  box.SetEnvironment("KELDO_CHILD_DEADLINE_SECONDS", "1");
  box.Script("convert-thumb", "when jpeg:size=800x800\nhang\nalways\noutputs jpeg\n");
  EXPECT_EQ(box.RunOn().exit_status, 0);
  EXPECT_TRUE(box.Exists(ThumbOf("a.png", "XL")));
  EXPECT_TRUE(box.Exists(MarkerOf("a.png", "L")));
  EXPECT_TRUE(box.Exists(MarkerOf("a.png", "S")));
  EXPECT_EQ(Counter(box, "completed"), 1);
  EXPECT_EQ(Counter(box, "completed_thumb"), 6);
}

TEST(FaultTest, RunawayDjpegFallsBackToTheConverter) {
  Sandbox box;
  box.AddPhoto("a.jpg", JpegHeaderOf(5000, 4000));
  box.SetEnvironment("KELDO_CHILD_DEADLINE_SECONDS", "1");
  box.Script("djpeg", "hang\n");
  EXPECT_EQ(box.RunOn().exit_status, 0);
  EXPECT_EQ(box.List(MetadataOf("a.jpg")), ThumbNames("XL B M L SM"));
}

TEST(FaultTest, RunawayDcrawFailsThePhoto) {
  Sandbox box;
  box.AddPhoto("a.x3f", "x");
  box.AddPhoto("b.png");
  box.SetEnvironment("KELDO_CHILD_DEADLINE_SECONDS", "1");
  box.Script("dcraw", "grandchild\nhang\n");
  const RunResult run = box.RunOn();
  EXPECT_EQ(run.exit_status, 0);
  EXPECT_THAT(run.survivors, IsEmpty());
  EXPECT_EQ(box.List(MetadataOf("a.x3f")), MarkerNames("XL B M L SM S"));
  EXPECT_EQ(box.List(MetadataOf("b.png")), ThumbNames("XL B M L SM"));
}

TEST(FaultTest, ConverterKilledFromOutsideFailsThePhase) {
  Sandbox box;
  box.AddPhoto("a.png");
  box.Script("convert-thumb", "hang\n");
  const RunResult run = RunFromShell(box, "kill -KILL $(pgrep -x convert-thumb)");
  EXPECT_EQ(run.standard_output, "0\n");
  EXPECT_EQ(box.List(MetadataOf("a.png")), MarkerNames("XL B M L SM S"));
}

TEST(FaultTest, FullMetadataDirectoryFailsThePhotoOnly) {
  Sandbox box;
  box.AddPhoto("a.png");
  box.AddPhoto("b.png");
  box.StartDaemon(AnswerVersion(0));
  box.Script("convert-thumb", "outputs jpeg 1280x960\n");
  box.MountMemory(MetadataOf("a.png"), 6 * kPage);
  const RunResult run = box.RunOn();
  EXPECT_EQ(run.exit_status, 0);
  const std::string kept = Sandbox::KeptDirectory(MetadataOf("a.png"));
  ExpectNoBrokenThumbnail(box, kept);
  EXPECT_TRUE(box.Exists(kept + "/KELDOPHOTO_THUMB_XL.fail")) << "a marker takes no space";
  EXPECT_EQ(box.List(MetadataOf("b.png")), ThumbNames("XL B M L SM"));
}

TEST(FaultTest, FullSpoolKeepsTheOldCounters) {
  Sandbox box;
  box.AddPhoto("a.png");
  box.StartDaemon(AnswerVersion(0));
  box.MountMemory("/var/spool", kPage);
  const RunResult run = box.RunOn();
  EXPECT_EQ(run.exit_status, 0);
  EXPECT_THAT(run.log,
              ElementsAre(ErrorLine("keldomk_progress:117 KLIBCFileSetKeyValue fail: "
                                    "/var/spool/conv_progress_photo"),
                          ErrorLine("keldothumb:1169 Failed to write [/volume1/photo] to thumb "
                                    "queue")));
  EXPECT_EQ(box.Read(Sandbox::KeptDirectory("/var/spool") + "/conv_progress_photo"),
            "completed_thumb=3\n");
  EXPECT_EQ(box.List(MetadataOf("a.png")), ThumbNames("XL B M L SM"));
}

TEST(FaultTest, FullRunDirectoryIsHarmless) {
  Sandbox box;
  box.AddPhoto("a.png");
  box.MountReadOnly("/run");
  EXPECT_EQ(box.RunOn().exit_status, 0);
  EXPECT_EQ(box.List(MetadataOf("a.png")), ThumbNames("XL B M L SM"));
}

}  // namespace
}  // namespace keldo::testing
