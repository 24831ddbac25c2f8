// keldothumbctl make with the real keldothumb: to the last phase, without root, and when
// interrupted.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

#include "e2e/fixtures.h"
#include "e2e/waiting.h"
#include "util/path.h"

namespace keldo::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr const char* kAllKinds = "XL B M L SM S";

std::vector<std::string> Make(std::vector<std::string> options = {}) {
  std::vector<std::string> arguments{"keldothumbctl", "make", "--profile", "/conf/profile"};
  arguments.insert(arguments.end(), options.begin(), options.end());
  arguments.emplace_back("/volume1");
  return arguments;
}

TEST(CtlMakeTest, FinishesAllPhasesAndLeavesNothingQueued) {
  Sandbox box;
  box.AddPhoto("a.jpg");
  box.AddPhoto("trip/b.jpg");
  const RunResult run = box.Run(Make());
  EXPECT_EQ(run.exit_status, 0) << run.standard_error;
  EXPECT_THAT(run.standard_output, HasSubstr("Photos:     2 in 2 folders\nThumbnails: 12 made"));
  EXPECT_EQ(run.standard_error, "");
  EXPECT_EQ(box.List(MetadataOf("a.jpg")), ThumbNames(kAllKinds));
  EXPECT_EQ(box.List("/volume1/photo/trip/@eaDir/b.jpg"), ThumbNames(kAllKinds));
  EXPECT_THAT(QueuedDirectories(box), IsEmpty());
  EXPECT_THAT(box.Run(Make()).invocations, IsEmpty());
}

TEST(CtlMakeTest, OtherLinesStayInTheQueue) {
  Sandbox box;
  box.AddPhoto("a.jpg");
  box.Write("/var/spool/thumb_create.queue", "/volume2/other\n/volume1/photo\n");
  EXPECT_EQ(box.Run(Make()).exit_status, 0);
  EXPECT_EQ(QueuedDirectories(box), std::vector<std::string>{"/volume2/other"});
}

TEST(CtlMakeTest, NeedsNeitherSpoolNorPidFile) {
  Sandbox box;
  box.AddPhoto("a.jpg");
  box.MountReadOnly("/run");
  box.MountReadOnly("/var/spool");
  const RunResult run = box.Run(Make());
  EXPECT_EQ(run.exit_status, 0) << run.standard_error;
  EXPECT_EQ(run.standard_error, "");
  EXPECT_EQ(box.List(MetadataOf("a.jpg")), ThumbNames(kAllKinds));
}

TEST(CtlMakeTest, FailedPhotoIsNamedAndTheOthersAreMade) {
  Sandbox box;
  box.AddPhoto("bad %[1].png", "rubbish");
  box.AddPhoto("good.png");
  box.Script("convert-thumb", "when /volume1/photo/bad %[1].png\nexit 1\nalways\noutputs jpeg\n");
  RunResult run = box.Run(Make());
  EXPECT_EQ(run.exit_status, 1);
  EXPECT_THAT(run.standard_output,
              HasSubstr("Failed:\n  /volume1/photo/bad %[1].png: is damaged at its start"));
  EXPECT_EQ(box.List(MetadataOf("good.png")), ThumbNames(kAllKinds));

  box.Script("convert-thumb", "outputs jpeg\n");
  box.AddPhoto("bad %[1].png");
  run = box.Run({"keldothumbctl", "retry", "--profile", "/conf/profile", "/volume1"});
  EXPECT_EQ(run.exit_status, 0) << run.standard_output;
  EXPECT_EQ(box.List(MetadataOf("bad %[1].png")), ThumbNames(kAllKinds));
}

TEST(CtlMakeTest, CtrlCStopsEverythingItStarted) {
  Sandbox box;
  for (const char* name : {"a/1.png", "b/2.png", "c/3.png"})
    box.AddPhoto(name);
  box.Script("convert-thumb", "grandchild\nhang\n");
  Running running(box, Make({"-j", "2"}));
  WaitForInvocations(box, 2);
  running.Signal(SIGINT);
  const RunResult run = running.Finish();
  EXPECT_EQ(run.exit_status, 1);
  EXPECT_THAT(run.survivors, IsEmpty());
  EXPECT_THAT(run.standard_error, HasSubstr("stopped; 3 photos left undone"));
  for (const char* metadata : {"a/@eaDir/1.png", "b/@eaDir/2.png", "c/@eaDir/3.png"}) {
    for (const std::string& name : box.List(JoinPath(kPhotoDir, metadata)))
      EXPECT_FALSE(name.ends_with(".fail")) << "an interrupted photo has not failed";
  }
}

TEST(CtlMakeTest, KilledMakeTakesItsChildrenWithIt) {
  Sandbox box;
  box.AddPhoto("a.png");
  box.Script("convert-thumb", "hang\n");
  Running running(box, Make());
  WaitForInvocations(box, 1);
  running.Signal(SIGKILL);
  EXPECT_THAT(running.Finish().survivors, IsEmpty());
}

TEST(CtlMakeTest, MakingOnlySomeKindsLeavesTheDirectoryQueued) {
  Sandbox box;
  box.AddPhoto("a.jpg");
  EXPECT_EQ(box.RunOn().exit_status, 0);
  EXPECT_EQ(QueuedDirectories(box), std::vector<std::string>{kPhotoDir});
  EXPECT_EQ(box.Run(Make({"--only-missing-kinds", "M"})).exit_status, 0);
  EXPECT_EQ(QueuedDirectories(box), std::vector<std::string>{kPhotoDir});
  EXPECT_EQ(box.Run(Make()).exit_status, 0);
  EXPECT_THAT(QueuedDirectories(box), IsEmpty());
}

}  // namespace
}  // namespace keldo::testing
