// RAW photos that dcraw decodes (x3f), with a stand-in for it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>

#include "e2e/fixtures.h"
#include "support/images.h"

namespace keldo::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kPhoto = "/volume1/photo/a.x3f";
constexpr const char* kPreview = "/volume1/photo/@eaDir/a.x3f/KELDOPHOTO_THUMB_RAW.jpg";
constexpr const char* kFull = "/volume1/photo/@eaDir/a.x3f/KELDOPHOTO_RAW_TEMP.ppm";
constexpr const char* kGoodScript =
    "when -e\nstdout-file /conf/preview\nwhen -w\nstdout-file /conf/full\n"
    "when -i\nstdout Filename: a\nstdout Output size:\nstdout Output size: big\n"
    "stdout Output size:  4000 x 3000 \n";

std::vector<std::string> Dcraw(const std::string& options) {
  return Words("/usr/bin/dcraw " + options + " " + kPhoto);
}

// An x3f photo, and a dcraw that delivers a preview of a chosen size and a full image.
class RawDcrawTest : public ::testing::Test {
 protected:
  RawDcrawTest() {
    box.StartDaemon(AnswerVersion(0));
    box.AddPhoto("a.x3f", "not read by anyone");
    box.Write("/conf/full", EncodePpm(FourCorners(40, 30)));
    box.Script("dcraw", kGoodScript);
    UsePreview(1280, 960);
  }

  void UsePreview(int width, int height) {
    box.Write("/conf/preview", JpegHeaderOf(width, height));
  }

  // All thumbnails failed, and no intermediate file is left.
  void ExpectFailed(const RunResult& run) {
    EXPECT_EQ(run.exit_status, 0);
    EXPECT_EQ(box.List(MetadataOf("a.x3f")), MarkerNames("XL B M L SM S"));
    EXPECT_EQ(Counter(box, "completed"), 1);
    EXPECT_EQ(Counter(box, "completed_thumb"), 6);
    EXPECT_THAT(run.requests, ElementsAre(PostRequest(kPhoto)));
    EXPECT_THAT(Calls(run, "convert-thumb"), IsEmpty());
    EXPECT_THAT(QueuedDirectories(box), IsEmpty());
  }

  // Checks the single line of a failed run, without its number.
  static void ExpectOneLine(const RunResult& run, const std::string& text) {
    ASSERT_EQ(run.log.size(), 1U);
    EXPECT_EQ(run.log[0].priority, 3);
    EXPECT_THAT(run.log[0].text, ::testing::MatchesRegex("[a-z_]+:[0-9]+ " + text));
  }

  Sandbox box;
};

TEST_F(RawDcrawTest, LargePreviewIsUsed) {
  const RunResult run = box.RunOn();
  EXPECT_THAT(Calls(run, "dcraw"), ElementsAre(Dcraw("-e -c"), Dcraw("-i -v")));
  EXPECT_EQ(Calls(run, "convert-thumb").at(0).at(3), kPreview);
  EXPECT_THAT(run.requests, ElementsAre(VersionRequest(kPreview), PostRequest(kPhoto)));
  EXPECT_THAT(run.log, IsEmpty());
  EXPECT_EQ(box.List(MetadataOf("a.x3f")), ThumbNames("XL B M L SM"));
  EXPECT_EQ(Counter(box, "completed_thumb"), 5);
}

TEST_F(RawDcrawTest, PreviewAsTallAsTheLargestThumbnailIsUsed) {
  UsePreview(100, 1280);
  EXPECT_EQ(Calls(box.RunOn(), "convert-thumb").at(0).at(3), kPreview);
}

TEST_F(RawDcrawTest, SmallPreviewLeadsToAFullDecode) {
  UsePreview(1279, 1279);
  const RunResult run = box.RunOn();
  EXPECT_THAT(Calls(run, "dcraw"), ElementsAre(Dcraw("-e -c"), Dcraw("-w -c"), Dcraw("-i -v")));
  EXPECT_EQ(Calls(run, "convert-thumb").at(0).at(3), kFull);
  EXPECT_THAT(run.requests, ElementsAre(VersionRequest(kFull), PostRequest(kPhoto)));
  EXPECT_THAT(run.log, IsEmpty());
  EXPECT_EQ(box.List(MetadataOf("a.x3f")), ThumbNames("XL B M L SM"));
}

TEST_F(RawDcrawTest, UnreadablePreviewLeadsToAFullDecode) {
  box.Write("/conf/preview", "not an image");
  EXPECT_EQ(Calls(box.RunOn(), "convert-thumb").at(0).at(3), kFull);
  EXPECT_EQ(box.List(MetadataOf("a.x3f")), ThumbNames("XL B M L SM"));
}

TEST_F(RawDcrawTest, ExitStatusIsIgnored) {
  box.Script("dcraw", "when -e\nstdout-file /conf/preview\nexit 1\n");
  EXPECT_EQ(Calls(box.RunOn(), "convert-thumb").at(0).at(3), kPreview);
}

TEST_F(RawDcrawTest, UpperCaseExtension) {
  box.Remove(kPhoto);
  box.AddPhoto("B.X3F", "x");
  const auto calls = Calls(box.RunOn(), "dcraw");
  EXPECT_EQ(calls.at(0), Words("/usr/bin/dcraw -e -c /volume1/photo/B.X3F"));
}

TEST_F(RawDcrawTest, NothingDecodedFailsThePhoto) {
  box.Script("dcraw", "stderr cannot decode\n");
  const RunResult run = box.RunOn();
  ExpectFailed(run);
  ExpectOneLine(run, "Failed to convert raw /volume1/photo/a.x3f to pnm");
  EXPECT_THAT(Calls(run, "dcraw"), ElementsAre(Dcraw("-e -c"), Dcraw("-w -c")));
}

TEST_F(RawDcrawTest, MissingDcrawFailsThePhoto) {
  box.Write("/conf/no-program", "x");
  box.MountOver("/conf/no-program", "/usr/bin/dcraw");
  const RunResult run = box.RunOn();
  ExpectFailed(run);
  ASSERT_EQ(run.log.size(), 3U);
  EXPECT_THAT(run.log[0].text,
              ::testing::MatchesRegex("[a-z_]+:[0-9]+ KLIBCPopen ./usr/bin/dcraw -e -c. failed"));
  EXPECT_THAT(run.log[1].text,
              ::testing::MatchesRegex("[a-z_]+:[0-9]+ KLIBCPopen ./usr/bin/dcraw -w -c. failed"));
}

TEST_F(RawDcrawTest, PhotoThatGrewWhileItWasDecodedFails) {
  box.Script("dcraw", "when -e\nstdout-file /conf/preview\nappend /volume1/photo/a.x3f\n");
  const RunResult run = box.RunOn();
  ExpectFailed(run);
  EXPECT_THAT(run.log, IsEmpty());
}

TEST_F(RawDcrawTest, PhotoThatVanishedWhileItWasDecodedFails) {
  box.Script("dcraw", "when -e\nstdout-file /conf/preview\nremove /volume1/photo/a.x3f\n");
  ExpectFailed(box.RunOn());
}

TEST_F(RawDcrawTest, PhotoRewrittenInPlaceIsProcessed) {
  box.Script("dcraw", std::string("rewrite /volume1/photo/a.x3f\n") + kGoodScript);
  EXPECT_EQ(box.RunOn().exit_status, 0);
  EXPECT_TRUE(box.Exists(ThumbOf("a.x3f", "XL")));
}

TEST_F(RawDcrawTest, FullDiskFailsThePhotoWithoutAnIntermediate) {
  box.AddPhoto("b.png");
  box.Write("/conf/full", std::string(1 << 20, 'x'));
  UsePreview(100, 100);
  box.MountMemory(MetadataOf("a.x3f"), 4 * kPage);
  const RunResult run = box.RunOn();
  EXPECT_EQ(run.exit_status, 0);
  EXPECT_EQ(box.List(Sandbox::KeptDirectory(MetadataOf("a.x3f"))), MarkerNames("XL B M L SM S"));
  EXPECT_THAT(run.log,
              ::testing::Contains(::testing::Field(
                  &LogLine::text,
                  ::testing::AnyOf(::testing::MatchesRegex("[a-z_]+:[0-9]+ write failed, path=" +
                                                           std::string(kFull) + ", .*"),
                                   ::testing::HasSubstr("write size wrong, read_count=")))));
  EXPECT_TRUE(box.Exists(ThumbOf("b.png", "XL")));
}

TEST_F(RawDcrawTest, FailedRenderRemovesTheIntermediateToo) {
  box.Script("convert-thumb", "exit 1\n");
  const RunResult run = box.RunOn();
  EXPECT_EQ(box.List(MetadataOf("a.x3f")), MarkerNames("XL B M L SM S"));
  EXPECT_THAT(run.requests, ElementsAre(VersionRequest(kPreview), PostRequest(kPhoto)));
}

TEST_F(RawDcrawTest, PhotoDatedInTheFutureKeepsItsThumbnailsUpToDate) {
  const std::time_t next_year = std::time(nullptr) + 365L * 24 * 3600;
  box.SetTime(kPhoto, next_year);
  EXPECT_EQ(box.RunOn().exit_status, 0);
  EXPECT_EQ(box.RunOn().exit_status, 0);
  for (const char* kind : {"XL", "B", "M", "L", "SM", "S"}) {
    EXPECT_EQ(box.Status(ThumbOf("a.x3f", kind)).st_mtime, next_year) << kind;
  }
  EXPECT_THAT(box.RunOn().invocations, IsEmpty());
}

TEST_F(RawDcrawTest, LaterPhasesDecodeNothing) {
  EXPECT_EQ(box.RunOn().exit_status, 0);
  const RunResult run = box.RunOn();
  EXPECT_THAT(Calls(run, "dcraw"), IsEmpty());
  EXPECT_THAT(run.requests, ElementsAre(VersionRequest(kPhoto), PostRequest(kPhoto)));
  EXPECT_TRUE(box.Exists(ThumbOf("a.x3f", "S")));
}

TEST_F(RawDcrawTest, SizeThatDcrawDoesNotReportIsLogged) {
  box.Script("dcraw", "when -e\nstdout-file /conf/preview\nwhen -i\nstdout Image size: 4 x 3\n");
  const RunResult run = box.RunOn();
  ExpectOneLine(run, ".Error. GetImageResolution: /volume1/photo/a.x3f");
  EXPECT_EQ(box.List(MetadataOf("a.x3f")), ThumbNames("XL B M L SM"));
}

TEST_F(RawDcrawTest, HostileNamesWork) {
  box.Remove(kPhoto);
  for (const char* name : {"a[1]%d*.x3f", "-e.x3f", "a\nb.x3f", "\xff.x3f"}) {
    box.AddPhoto(name, "x");
    const RunResult run = box.RunOn();
    EXPECT_EQ(Calls(run, "dcraw").at(0).at(3), std::string(kPhotoDir) + "/" + name);
    EXPECT_EQ(box.List(MetadataOf(name)), ThumbNames("XL B M L SM"));
    box.Remove(std::string(kPhotoDir) + "/" + name);
  }
}

}  // namespace
}  // namespace keldo::testing
