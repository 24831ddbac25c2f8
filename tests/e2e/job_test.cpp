// The work on one directory: phases over several runs, counters, queue, notices to the daemon.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>

#include "e2e/fixtures.h"

namespace keldo::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kPhase0OfA =
    "/usr/keldo/bin/convert-thumb -define registry:temporary-path=/volume1/photo/@eaDir/a.jpg "
    "/volume1/photo/a.jpg "
    "( -clone 0 -define jpeg:size=1280x1280 -thumbnail 1280x1280>^ -quality 86 +profile !icc,* "
    "-flatten -auto-orient -colorspace sRGB "
    "-write /volume1/photo/@eaDir/a.jpg/KELDOPHOTO.tmp.XXXXXX.jpg ) -delete 0 "
    "( +clone -define jpeg:size=640x640 -thumbnail 640x640> -quality 84 +profile !icc,* -flatten "
    "-auto-orient -unsharp 0.4x0.4+1+0 -colorspace sRGB "
    "-write /volume1/photo/@eaDir/a.jpg/KELDOPHOTO.tmp.XXXXXX.jpg +delete ) "
    "-define jpeg:size=320x320 -thumbnail 320x320>^ -quality 82 +profile !icc,* -flatten "
    "-auto-orient -unsharp 0.2x0.2+1+0 -colorspace sRGB "
    "/volume1/photo/@eaDir/a.jpg/KELDOPHOTO.tmp.XXXXXX.jpg";
constexpr const char* kPhase1OfA =
    "/usr/keldo/bin/convert-thumb -define registry:temporary-path=/volume1/photo/@eaDir/a.jpg "
    "/volume1/photo/@eaDir/a.jpg/KELDOPHOTO_THUMB_XL.jpg "
    "( -clone 0 -define jpeg:size=800x800 -thumbnail 800x800>^ -quality 85 -flatten "
    "-colorspace sRGB -write /volume1/photo/@eaDir/a.jpg/KELDOPHOTO.tmp.XXXXXX.jpg ) -delete 0 "
    "-define jpeg:size=240x240 -thumbnail 240x240>^ -quality 83 -flatten "
    "-unsharp 0.3x0.3+1+0 -colorspace sRGB "
    "/volume1/photo/@eaDir/a.jpg/KELDOPHOTO.tmp.XXXXXX.jpg";
constexpr const char* kPhase2OfA =
    "/usr/keldo/bin/convert-thumb -define registry:temporary-path=/volume1/photo/@eaDir/a.jpg "
    "/volume1/photo/@eaDir/a.jpg/KELDOPHOTO_THUMB_XL.jpg "
    "-define jpeg:size=120x120 -thumbnail 120x120> -quality 81 -flatten -unsharp 0.1x0.1+1+0 "
    "-colorspace sRGB /volume1/photo/@eaDir/a.jpg/KELDOPHOTO.tmp.XXXXXX.jpg";
constexpr const char* kPhotoA = "/volume1/photo/a.jpg";

// A sandbox with the photo a.jpg, and a daemon that does not know it.
class JobTest : public ::testing::Test {
 protected:
  JobTest() {
    box.StartDaemon(AnswerVersion(0));
    box.AddPhoto("a.jpg");
  }

  // Makes all six thumbnails, up to date, and removes the queue and the counters.
  void MakeAll() {
    ASSERT_EQ(box.RunOn().exit_status, 0);
    ASSERT_EQ(box.RunOn().exit_status, 0);
    ASSERT_EQ(box.List(MetadataOf("a.jpg")), ThumbNames("XL B M L SM S"));
    box.Remove("/var/spool/thumb_create.queue");
    box.Remove("/var/spool/conv_progress_photo");
  }

  Sandbox box;
};

TEST_F(JobTest, ThreeRunsFinishAPhoto) {
  const RunResult first = box.RunOn();
  EXPECT_THAT(Calls(first, "convert-thumb"), ElementsAre(Words(kPhase0OfA), Words(kPhase1OfA)));
  EXPECT_EQ(first.invocations.size(), 2U);
  EXPECT_THAT(first.requests, ElementsAre(VersionRequest(kPhotoA), PostRequest(kPhotoA)));
  EXPECT_THAT(first.log, IsEmpty());
  EXPECT_EQ(box.List(MetadataOf("a.jpg")), ThumbNames("XL B M L SM"));
  EXPECT_EQ(box.Read("/var/spool/conv_progress_photo"), "completed_thumb=5\n");
  EXPECT_THAT(QueuedDirectories(box), ElementsAre(kPhotoDir));

  box.Remove("/var/spool/thumb_create.queue");
  const RunResult second = box.RunOn();
  EXPECT_THAT(Calls(second, "convert-thumb"), ElementsAre(Words(kPhase2OfA)));
  EXPECT_THAT(second.requests, ElementsAre(VersionRequest(kPhotoA), PostRequest(kPhotoA)));
  EXPECT_THAT(second.log, IsEmpty());
  EXPECT_EQ(box.List(MetadataOf("a.jpg")), ThumbNames("XL B M L SM S"));
  EXPECT_EQ(Counter(box, "completed"), 1);
  EXPECT_EQ(Counter(box, "completed_thumb"), 6);
  EXPECT_THAT(QueuedDirectories(box), IsEmpty());

  const RunResult third = box.RunOn();
  EXPECT_THAT(third.invocations, IsEmpty());
  EXPECT_THAT(third.requests, ElementsAre(PostRequest(kPhotoA)));
  EXPECT_THAT(third.log, IsEmpty());
  EXPECT_EQ(Counter(box, "completed"), 1);
  EXPECT_EQ(Counter(box, "completed_thumb"), 6);
  EXPECT_THAT(QueuedDirectories(box), IsEmpty());
}

TEST_F(JobTest, PhotosAreProcessedInByteOrderAndQueuedOnce) {
  for (const char* name : {"IMG_9.jpg", "IMG_10.jpg", "Z.jpg"})
    box.AddPhoto(name);
  const RunResult run = box.RunOn();
  std::vector<std::string> inputs;
  for (const auto& call : Calls(run, "convert-thumb"))
    inputs.push_back(call.at(3));
  const std::string xl = "/KELDOPHOTO_THUMB_XL.jpg";
  EXPECT_THAT(inputs, ElementsAre("/volume1/photo/IMG_10.jpg", MetadataOf("IMG_10.jpg") + xl,
                                  "/volume1/photo/IMG_9.jpg", MetadataOf("IMG_9.jpg") + xl,
                                  "/volume1/photo/Z.jpg", MetadataOf("Z.jpg") + xl,
                                  "/volume1/photo/a.jpg", MetadataOf("a.jpg") + xl));
  EXPECT_EQ(box.Read("/var/spool/thumb_create.queue"), "/volume1/photo\n");
  EXPECT_EQ(Counter(box, "completed_thumb"), 20);
  EXPECT_EQ(Counter(box, "completed"), -1);
}

TEST_F(JobTest, QueueAndCountersKeepWhatOthersWrote) {
  box.Write("/var/spool/thumb_create.queue", "/volume1/other\n");
  box.Write("/var/spool/conv_progress_photo", "total=7\ncompleted_thumb=10\ntotal_thumb=42\n");
  EXPECT_EQ(box.RunOn().exit_status, 0);
  EXPECT_EQ(box.Read("/var/spool/thumb_create.queue"), "/volume1/other\n/volume1/photo\n");
  EXPECT_EQ(box.Read("/var/spool/conv_progress_photo"),
            "total=7\ncompleted_thumb=15\ntotal_thumb=42\n");
}

TEST_F(JobTest, QueuedDirectoryIsNotQueuedAgain) {
  box.Write("/var/spool/thumb_create.queue", "/volume1/photo\n/volume1/photo2\n");
  EXPECT_EQ(box.RunOn().exit_status, 0);
  EXPECT_THAT(QueuedDirectories(box), ElementsAre(kPhotoDir, "/volume1/photo2"));
}

TEST_F(JobTest, CounterThatIsNotANumberCountsAsZero) {
  box.Write("/var/spool/conv_progress_photo", "completed_thumb=many\n");
  EXPECT_EQ(box.RunOn().exit_status, 0);
  EXPECT_EQ(Counter(box, "completed_thumb"), 5);
}

TEST_F(JobTest, MissingSmallThumbnailStartsAtPhaseTwo) {
  MakeAll();
  box.Remove(ThumbOf("a.jpg", "S"));
  const RunResult run = box.RunOn();
  EXPECT_THAT(Calls(run, "convert-thumb"), ElementsAre(Words(kPhase2OfA)));
  EXPECT_EQ(Counter(box, "completed"), 1);
  EXPECT_EQ(Counter(box, "completed_thumb"), 1);
  EXPECT_THAT(QueuedDirectories(box), IsEmpty());
}

TEST_F(JobTest, EmptyThumbnailIsMadeAgain) {
  MakeAll();
  box.Write(ThumbOf("a.jpg", "S"), "");
  EXPECT_THAT(Calls(box.RunOn(), "convert-thumb"), ElementsAre(Words(kPhase2OfA)));
  EXPECT_GT(box.Status(ThumbOf("a.jpg", "S")).st_size, 1);
}

TEST_F(JobTest, StalePhaseOneThumbnailStartsThere) {
  MakeAll();
  box.SetTime(ThumbOf("a.jpg", "L"), kPhotoTime - 1);
  const RunResult run = box.RunOn();
  EXPECT_THAT(
      Calls(run, "convert-thumb"),
      ElementsAre(Words(
          "/usr/keldo/bin/convert-thumb "
          "-define registry:temporary-path=/volume1/photo/@eaDir/a.jpg "
          "/volume1/photo/@eaDir/a.jpg/KELDOPHOTO_THUMB_XL.jpg "
          "-define jpeg:size=800x800 -thumbnail 800x800>^ -quality 85 -flatten -colorspace sRGB "
          "/volume1/photo/@eaDir/a.jpg/KELDOPHOTO.tmp.XXXXXX.jpg")))
      << "phase 0 is current, and so is SM of phase 1";
  EXPECT_THAT(run.requests, ElementsAre(VersionRequest(kPhotoA), PostRequest(kPhotoA)));
  EXPECT_EQ(Counter(box, "completed"), -1);
  EXPECT_EQ(Counter(box, "completed_thumb"), 2);
  EXPECT_THAT(QueuedDirectories(box), ElementsAre(kPhotoDir));
}

TEST_F(JobTest, ThumbnailAsOldAsThePhotoIsCurrent) {
  MakeAll();
  for (const char* kind : {"XL", "B", "M", "L", "SM", "S"}) {
    box.SetTime(ThumbOf("a.jpg", kind), kPhotoTime);
  }
  EXPECT_THAT(box.RunOn().invocations, IsEmpty());
  box.Remove(ThumbOf("a.jpg", "S"));
  EXPECT_THAT(Calls(box.RunOn(), "convert-thumb"), ElementsAre(Words(kPhase2OfA)));
  box.SetTime(ThumbOf("a.jpg", "S"), kPhotoTime);
  box.SetTime(kPhotoA, kPhotoTime + 1);
  EXPECT_THAT(Calls(box.RunOn(), "convert-thumb"),
              ElementsAre(Words(kPhase0OfA), Words(kPhase1OfA)));
}

TEST_F(JobTest, OneByteThumbnailOfPhaseZeroStartsThere) {
  MakeAll();
  box.Write(ThumbOf("a.jpg", "M"), "x");
  box.Remove(ThumbOf("a.jpg", "S"));
  EXPECT_EQ(box.RunOn().exit_status, 0);
  EXPECT_EQ(Counter(box, "completed_thumb"), 5) << "phases 0 and 1 were processed";
  EXPECT_THAT(QueuedDirectories(box), ElementsAre(kPhotoDir));
  EXPECT_GT(box.Status(ThumbOf("a.jpg", "M")).st_size, 1) << "made again";
}

TEST_F(JobTest, EitherSpellingCountsAsPresent) {
  MakeAll();
  for (const char* kind : {"XL", "B", "M", "L", "SM", "S"}) {
    std::filesystem::rename(
        box.Outside(ThumbOf("a.jpg", kind)),
        box.Outside(MetadataOf("a.jpg") + "/KELDOPHOTO:THUMB_" + kind + ".jpg"));
  }
  const RunResult run = box.RunOn();
  EXPECT_THAT(run.invocations, IsEmpty());
  EXPECT_THAT(run.requests, ElementsAre(PostRequest(kPhotoA)));
}

TEST_F(JobTest, ColonSpellingOfAProfileIsFound) {
  MakeAll();
  std::filesystem::rename(box.Outside(ThumbOf("a.jpg", "SM")),
                          box.Outside(MetadataOf("a.jpg") + "/KELDOPHOTO:THUMB_SM.jpg"));
  box.Remove(ThumbOf("a.jpg", "S"));
  EXPECT_THAT(Calls(box.RunOn(), "convert-thumb"), ElementsAre(Words(kPhase2OfA)))
      << "phase 1 is complete";
}

TEST_F(JobTest, BaseThumbnailInTheOtherSpellingIsMadeAgain) {
  MakeAll();
  std::filesystem::rename(box.Outside(ThumbOf("a.jpg", "XL")),
                          box.Outside(MetadataOf("a.jpg") + "/KELDOPHOTO:THUMB_XL.jpg"));
  box.Remove(ThumbOf("a.jpg", "S"));
  // Phase 1 is re-rendered only if it is older than its source, the new XL thumbnail.
  const std::time_t next_year = std::time(nullptr) + 365L * 24 * 3600;
  for (const char* kind : {"L", "SM"})
    box.SetTime(ThumbOf("a.jpg", kind), next_year);
  const auto calls = Calls(box.RunOn(), "convert-thumb");
  ASSERT_EQ(calls.size(), 1U);
  EXPECT_EQ(calls[0].at(3), kPhotoA);
  EXPECT_TRUE(box.Exists(ThumbOf("a.jpg", "XL")));
}

TEST_F(JobTest, PhotoDatedInTheFutureKeepsItsThumbnailsUpToDate) {
  const std::time_t next_year = std::time(nullptr) + 365L * 24 * 3600;
  box.SetTime(kPhotoA, next_year);
  ASSERT_NO_FATAL_FAILURE(MakeAll());
  for (const char* kind : {"XL", "B", "M", "L", "SM", "S"}) {
    EXPECT_EQ(box.Status(ThumbOf("a.jpg", kind)).st_mtime, next_year) << kind;
  }
  EXPECT_THAT(box.RunOn().invocations, IsEmpty());
}

TEST_F(JobTest, DirectoryWithoutPhotosIsLeftAlone) {
  box.Remove(kPhotoA);
  box.Write("/volume1/photo/note.txt", "x");
  const RunResult run = box.RunOn();
  EXPECT_THAT(run.log, IsEmpty());
  EXPECT_THAT(run.requests, IsEmpty());
  EXPECT_THAT(box.List(kPhotoDir), ElementsAre("note.txt"));
  EXPECT_THAT(box.List("/var/spool"), IsEmpty());
}

TEST_F(JobTest, ProfileWithoutPhaseZeroRendersNothing) {
  box.UseProfile("[thumb_s]\nfilename=KELDOPHOTO_THUMB_S.jpg\nphase=2\n");
  const RunResult run = box.RunOn();
  EXPECT_THAT(run.invocations, IsEmpty());
  EXPECT_THAT(run.requests, ElementsAre(VersionRequest(kPhotoA))) << "no notice";
  EXPECT_THAT(box.List(MetadataOf("a.jpg")), IsEmpty());
  EXPECT_THAT(box.List("/var/spool"), IsEmpty());
}

TEST_F(JobTest, OtherPhasesCountAsZeroAndSizesAreSorted) {
  box.UseProfile(
      "[thumb_a]\nfilename=KELDOPHOTO:THUMB_M.jpg\nsize=200\nphase=7\n"
      "[thumbB]\nfilename=KELDOPHOTO_THUMB_S.jpg\n"
      "[Thumb_c]\nfilename=KELDOPHOTO_THUMB_L.jpg\n[thumb_d]\nsize=3\n");
  const RunResult run = box.RunOn();
  const std::string directory = "/volume1/photo/@eaDir/a.jpg";
  EXPECT_THAT(Calls(run, "convert-thumb"),
              ElementsAre(Words(
                  "/usr/keldo/bin/convert-thumb -define registry:temporary-path=" + directory +
                  " /volume1/photo/a.jpg ( -clone 0 -define jpeg:size=200x200 -thumbnail 200x200>^ "
                  "-quality 80 +profile !icc,* -flatten -auto-orient -colorspace sRGB -write " +
                  directory +
                  "/KELDOPHOTO.tmp.XXXXXX.jpg ) -delete 0 -define jpeg:size=120x120 "
                  "-thumbnail 120x120> -quality 80 +profile !icc,* -flatten -auto-orient "
                  "-colorspace sRGB " +
                  directory + "/KELDOPHOTO.tmp.XXXXXX.jpg")));
  EXPECT_EQ(box.List(directory), ThumbNames("M S")) << "always the underscore spelling";
}

TEST_F(JobTest, CodecPackageProvidesTheConverter) {
  box.InstallCodecPackage();
  box.SetEnvironment("KELDO_CODEC_PKG_NAME", "before");
  const RunResult run = box.RunOn();
  ASSERT_EQ(run.invocations.size(), 2U);
  for (const Invocation& invocation : run.invocations) {
    EXPECT_EQ(invocation.arguments.at(0), "/var/packages/Vantrel/target/pack/usr/bin/convert");
    EXPECT_EQ(invocation.codec_package, "zun");
  }
  EXPECT_EQ(box.List(MetadataOf("a.jpg")), ThumbNames("XL B M L SM"));
}

TEST_F(JobTest, WithoutCodecPackageTheEnvironmentStays) {
  EXPECT_EQ(box.RunOn().invocations.at(0).codec_package, std::nullopt);
  box.Remove("/volume1/photo/@eaDir");
  box.SetEnvironment("KELDO_CODEC_PKG_NAME", "before");
  EXPECT_EQ(box.RunOn().invocations.at(0).codec_package, "before");
}

}  // namespace
}  // namespace keldo::testing
