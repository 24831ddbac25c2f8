// Finds out how existing thumbnails are rotated, with stand-ins for the converter and compare.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "e2e/fixtures.h"
#include "support/images.h"

namespace keldo::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string kMetadata = "/volume1/photo/@eaDir/a.png";
const std::string kReference = kMetadata + "/KELDOPHOTO_THUMB_XL.jpg";

// The converter's arguments for a trial with one rotation.
std::vector<std::string> Trial(const std::string& rotate) {
  return Words("/usr/keldo/bin/convert-thumb -define registry:temporary-path=" + kMetadata +
               " /volume1/photo/a.png -define jpeg:size=1280x1280 -thumbnail 1280x1280>^ "
               "-quality 86 +profile !icc,* -flatten " +
               rotate + " -colorspace sRGB " + kMetadata + "/KELDOPHOTO.tmp.XXXXXX.jpg");
}

std::vector<std::string> Compare(const std::string& rotation) {
  return Words("/usr/bin/compare -metric MAE " + kMetadata + "/Temp_" + rotation + ".jpg " +
               kReference + " null:");
}

// A landscape photo that is newer than its thumbnails, and known to the index.
class OrientationTest : public ::testing::Test {
 protected:
  OrientationTest() {
    box.AddPhoto("a.png");
    box.StartDaemon(AnswerVersion(1));
    UseThumbnails(40, 30);
  }

  // Writes old thumbnails of this size.
  void UseThumbnails(int width, int height) {
    for (const char* kind : {"XL", "B", "M", "L", "SM", "S"}) {
      box.Write(ThumbOf("a.png", kind), EncodeJpeg(FourCorners(width, height)));
      box.SetTime(ThumbOf("a.png", kind), kPhotoTime - 1);
    }
  }

  // Makes compare print these two lines for two rotations.
  void UseDistances(const std::string& rotation1, const std::string& line1,
                    const std::string& rotation2, const std::string& line2) {
    const std::string trial = "when " + kMetadata + "/Temp_";
    box.Script("compare", trial + rotation1 + ".jpg\nstderr " + line1 + "\n" + trial + rotation2 +
                              ".jpg\nstderr " + line2 + "\nalways\nexit 1\n");
  }

  // The rotation of phase 0: the value after "-rotate", empty if it was not rotated.
  std::string RotationOfPhaseZero(const RunResult& run) {
    for (const auto& call : Calls(run, "convert-thumb")) {
      if (call.at(4) != "(") continue;  // A trial has one output only.
      EXPECT_THAT(call, ::testing::Not(::testing::Contains("-auto-orient")));
      const auto option = std::find(call.begin(), call.end(), "-rotate");
      return option == call.end() ? "" : *(option + 1);
    }
    return "no phase 0";
  }

  std::string RotationFor(const std::string& rotation1, const std::string& line1,
                          const std::string& rotation2, const std::string& line2) {
    UseThumbnails(rotation1 == "90" ? 30 : 40, rotation1 == "90" ? 40 : 30);
    UseDistances(rotation1, line1, rotation2, line2);
    const RunResult run = box.RunOn();
    EXPECT_EQ(Calls(run, "compare").size(), 2U);
    EXPECT_EQ(box.List(kMetadata), ThumbNames("XL B M L SM S")) << "no trial is left";
    return RotationOfPhaseZero(run);
  }

  Sandbox box;
};

TEST_F(OrientationTest, HalfRotationsAreTriedInOrder) {
  UseDistances("180", "100.5 (0.1)", "0", "200 (0.2)");
  const RunResult run = box.RunOn();
  EXPECT_THAT(run.log, IsEmpty());
  EXPECT_THAT(Calls(run, "compare"), ElementsAre(Compare("180"), Compare("0")));
  const auto converted = Calls(run, "convert-thumb");
  ASSERT_EQ(converted.size(), 4U);
  EXPECT_EQ(converted[0], Trial(""));
  EXPECT_EQ(converted[1], Trial("-rotate 180"));
  EXPECT_EQ(RotationOfPhaseZero(run), "180");
  EXPECT_THAT(converted[3], ::testing::Not(::testing::Contains("-rotate"))) << "phase 1";
}

TEST_F(OrientationTest, QuarterRotationsAreTriedInOrder) {
  UseThumbnails(30, 40);
  UseDistances("270", "100.5 (0.1)", "90", "200 (0.2)");
  const RunResult run = box.RunOn();
  EXPECT_THAT(Calls(run, "compare"), ElementsAre(Compare("270"), Compare("90")));
  const auto converted = Calls(run, "convert-thumb");
  ASSERT_EQ(converted.size(), 4U);
  EXPECT_EQ(converted[0], Trial("-rotate 90"));
  EXPECT_EQ(converted[1], Trial("-rotate 270"));
  EXPECT_EQ(RotationOfPhaseZero(run), "270");
}

TEST_F(OrientationTest, TheSmallerDistanceWins) {
  EXPECT_EQ(RotationFor("0", "7 (0)", "180", "8 (0)"), "");
  EXPECT_EQ(RotationFor("0", "8 (0)", "180", "7.9 (0)"), "180");
  EXPECT_EQ(RotationFor("90", "7 (0)", "270", "8 (0)"), "90");
  EXPECT_EQ(RotationFor("90", "8 (0)", "270", "7 (0)"), "270");
}

TEST_F(OrientationTest, TiesAndFractionsGoToTheFirst) {
  EXPECT_EQ(RotationFor("0", "7.9 (0)", "180", "7.1 (0)"), "") << "whole parts are compared";
  EXPECT_EQ(RotationFor("90", "7.9 (0)", "270", "7.1 (0)"), "90");
}

TEST_F(OrientationTest, FailedComparisonCountsAsTheGreatestDistance) {
  EXPECT_EQ(RotationFor("0", "failed", "180", "60000 (0)"), "180");
  EXPECT_EQ(RotationFor("0", "failed", "180", "failed"), "");
  EXPECT_EQ(RotationFor("90", "failed", "270", "failed"), "90");
  EXPECT_EQ(RotationFor("0", "65536 (1)", "180", "failed"), "180");
}

TEST_F(OrientationTest, SquareReferenceMeansHalfRotations) {
  UseThumbnails(30, 30);
  UseDistances("180", "1 (0)", "0", "2 (0)");
  EXPECT_EQ(RotationOfPhaseZero(box.RunOn()), "180");
}

TEST_F(OrientationTest, UnreadableReferenceMeansHalfRotations) {
  box.Write(kReference, "not an image");
  box.SetTime(kReference, kPhotoTime - 1);
  UseDistances("180", "1 (0)", "0", "2 (0)");
  EXPECT_EQ(RotationOfPhaseZero(box.RunOn()), "180");
}

TEST_F(OrientationTest, FailedTrialMeansNoRotation) {
  box.Script("convert-thumb", "when 180\nexit 1\nalways\noutputs jpeg\n");
  const RunResult run = box.RunOn();
  EXPECT_THAT(Calls(run, "compare"), IsEmpty());
  EXPECT_EQ(RotationOfPhaseZero(run), "");
  EXPECT_FALSE(box.Exists(kMetadata + "/Temp_0.jpg"));
}

TEST_F(OrientationTest, LargestExistingThumbnailIsTheReference) {
  box.Remove(kReference);
  UseDistances("180", "1 (0)", "0", "2 (0)");
  const RunResult run = box.RunOn();
  EXPECT_EQ(Calls(run, "compare").at(0).at(4), kMetadata + "/KELDOPHOTO_THUMB_L.jpg");
  EXPECT_THAT(Calls(run, "convert-thumb").at(0), ::testing::IsSupersetOf({"800x800>^", "85"}));
  EXPECT_EQ(RotationOfPhaseZero(run), "180");
}

TEST_F(OrientationTest, StrayTrialsAreRemoved) {
  box.Write(kMetadata + "/Temp_5.jpg", "x");
  EXPECT_EQ(box.RunOn().exit_status, 0);
  EXPECT_FALSE(box.Exists(kMetadata + "/Temp_5.jpg"));
}

TEST_F(OrientationTest, TrialsThatCannotBeRemovedAreLogged) {
  box.MakeDirectory(kMetadata + "/Temp_5.jpg");
  const RunResult run = box.RunOn();
  ASSERT_EQ(run.log.size(), 1U);
  EXPECT_EQ(run.log[0].priority, 3);
  EXPECT_THAT(run.log[0].text,
              ::testing::MatchesRegex("[a-z_]+:[0-9]+ Failed to remove files by pattern ." +
                                      kMetadata + "/Temp_.*\\.jpg."));
}

TEST_F(OrientationTest, MissingCompareIsLoggedAndHarmless) {
  box.Write("/conf/no-program", "x");
  box.MountOver("/conf/no-program", "/usr/bin/compare-im6.q16");
  const RunResult run = box.RunOn();
  ASSERT_EQ(run.log.size(), 2U);
  EXPECT_THAT(run.log[0].text,
              ::testing::MatchesRegex("[a-z_]+:[0-9]+ .Error. KLIBCPopen: /usr/bin/compare "
                                      "-metric MAE " +
                                      kMetadata + "/Temp_180.jpg " + kReference + " null:"));
  EXPECT_EQ(RotationOfPhaseZero(run), "");
}

TEST_F(OrientationTest, RunawayCompareIsKilled) {
  box.SetEnvironment("KELDO_CHILD_DEADLINE_SECONDS", "1");
  box.Script("compare", "hang\n");
  const RunResult run = box.RunOn();
  EXPECT_EQ(RotationOfPhaseZero(run), "");
  EXPECT_THAT(run.survivors, IsEmpty());
}

TEST_F(OrientationTest, LaterPhasesAreNotRotated) {
  for (const char* kind : {"XL", "B", "M"})
    box.SetTime(ThumbOf("a.png", kind), kPhotoTime);
  const RunResult run = box.RunOn();
  EXPECT_THAT(Calls(run, "compare"), IsEmpty());
  EXPECT_EQ(Calls(run, "convert-thumb").size(), 1U) << "phase 1 alone";
}

TEST_F(OrientationTest, UnknownPhotoIsNotCompared) {
  box.StartDaemon(AnswerVersion(0));
  EXPECT_THAT(Calls(box.RunOn(), "compare"), IsEmpty());
}

}  // namespace
}  // namespace keldo::testing
