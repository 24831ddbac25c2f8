// Failures during the work on a directory: messages, markers, counters, notices to the daemon.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "e2e/fixtures.h"
#include "support/images.h"

namespace keldo::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kPhotoA = "/volume1/photo/a.png";
constexpr const char* kPhotoB = "/volume1/photo/b.png";
constexpr std::size_t kGiB = std::size_t{1} << 30;

// The names that a photo's metadata directory should contain, sorted.
std::vector<std::string> Both(const std::string& thumb_kinds, const std::string& marker_kinds) {
  std::vector<std::string> names = ThumbNames(thumb_kinds);
  for (const std::string& name : MarkerNames(marker_kinds))
    names.push_back(name);
  std::sort(names.begin(), names.end());
  return names;
}

std::string MkdirLine(const std::string& path, int error) {
  return "keldothumb:507 keldothumb: checkCreateDir(507) - mkdir(" + path +
         ", 0777 ), errno: " + std::to_string(error) + "\n";
}

// Two photos and a daemon. In most tests the first photo fails.
class JobFailureTest : public ::testing::Test {
 protected:
  JobFailureTest() {
    box.StartDaemon(AnswerVersion(0));
    box.AddPhoto("a.png");
    box.AddPhoto("b.png");
  }

  // Checks a directory in which no work was done at all.
  void ExpectNothingDone(const RunResult& run) {
    EXPECT_EQ(run.exit_status, 0);
    EXPECT_THAT(run.invocations, IsEmpty());
    EXPECT_THAT(run.requests, IsEmpty());
    EXPECT_THAT(box.List("/var/spool"), IsEmpty());
  }

  Sandbox box;
};

TEST_F(JobFailureTest, FailedPhaseZeroMarksEverything) {
  box.Script("convert-thumb", "when /volume1/photo/a.png\nexit 1\nalways\noutputs jpeg\n");
  const RunResult run = box.RunOn();
  EXPECT_EQ(run.exit_status, 0);
  ASSERT_EQ(run.log.size(), 1U) << "the converter's failure";
  EXPECT_EQ(run.log[0].priority, 4);
  EXPECT_THAT(run.log[0].text,
              ::testing::StartsWith("process:63 [Warning] /usr/keldo/bin/convert-thumb ended with "
                                    "status 1 on /volume1/photo/@eaDir/a.png/KELDOPHOTO.tmp."));
  EXPECT_EQ(box.List(MetadataOf("a.png")), MarkerNames("XL B M L SM S"));
  EXPECT_EQ(box.List(MetadataOf("b.png")), ThumbNames("XL B M L SM"));
  EXPECT_EQ(box.Status(MarkerOf("a.png", "XL")).st_size, 0);
  EXPECT_EQ(box.Status(MarkerOf("a.png", "XL")).st_mode, S_IFREG | 0777U);
  EXPECT_THAT(run.requests, ElementsAre(VersionRequest(kPhotoA), PostRequest(kPhotoA),
                                        VersionRequest(kPhotoB), PostRequest(kPhotoB)));
  EXPECT_EQ(Counter(box, "completed"), 1);
  EXPECT_EQ(Counter(box, "completed_thumb"), 6 + 5);
  EXPECT_THAT(QueuedDirectories(box), ElementsAre(kPhotoDir)) << "for b.png";
}

TEST_F(JobFailureTest, FailedPhotoIsTriedAgain) {
  box.Remove(kPhotoB);
  box.Script("convert-thumb", "exit 1\n");
  EXPECT_EQ(box.RunOn().exit_status, 0);
  EXPECT_THAT(QueuedDirectories(box), IsEmpty());
  box.Script("convert-thumb", "outputs jpeg\n");
  EXPECT_EQ(box.RunOn().exit_status, 0);
  EXPECT_EQ(box.List(MetadataOf("a.png")), ThumbNames("XL B M L SM")) << "no marker is left";
}

TEST_F(JobFailureTest, FailedPhaseOneMarksTheRest) {
  box.Remove(kPhotoB);
  box.Script("convert-thumb", "when jpeg:size=800x800\nexit 1\nalways\noutputs jpeg\n");
  const RunResult run = box.RunOn();
  EXPECT_EQ(box.List(MetadataOf("a.png")), Both("XL B M", "L SM S"));
  EXPECT_THAT(run.requests, ElementsAre(VersionRequest(kPhotoA), PostRequest(kPhotoA)));
  EXPECT_EQ(Counter(box, "completed"), 1);
  EXPECT_EQ(Counter(box, "completed_thumb"), 3 + 2 + 1);
  EXPECT_THAT(QueuedDirectories(box), IsEmpty());
}

TEST_F(JobFailureTest, FailedPhaseTwoCountsAsCompleted) {
  box.Remove(kPhotoB);
  EXPECT_EQ(box.RunOn().exit_status, 0);
  box.Script("convert-thumb", "exit 1\n");
  const RunResult run = box.RunOn();
  EXPECT_EQ(box.List(MetadataOf("a.png")), Both("XL B M L SM", "S"));
  EXPECT_THAT(run.requests, ElementsAre(VersionRequest(kPhotoA), PostRequest(kPhotoA)));
  EXPECT_EQ(Counter(box, "completed"), 1);
  EXPECT_EQ(Counter(box, "completed_thumb"), 6);
}

TEST_F(JobFailureTest, FailedPhaseRemovesItsOldThumbnails) {
  box.Remove(kPhotoB);
  EXPECT_EQ(box.RunOn().exit_status, 0);
  EXPECT_EQ(box.RunOn().exit_status, 0);
  std::filesystem::rename(box.Outside(ThumbOf("a.png", "SM")),
                          box.Outside(MetadataOf("a.png") + "/KELDOPHOTO:THUMB_SM.jpg"));
  box.SetTime(ThumbOf("a.png", "L"), kPhotoTime - 1);
  box.Script("convert-thumb", "exit 1\n");
  EXPECT_EQ(box.RunOn().exit_status, 0);
  EXPECT_EQ(box.List(MetadataOf("a.png")), Both("XL B M", "L SM S"))
      << "phase 1 fails as a whole, and the current SM goes in both spellings";
}

TEST_F(JobFailureTest, MissingConverterFailsThePhoto) {
  box.Remove("/usr/keldo/bin/convert-thumb");
  const RunResult run = box.RunOn();
  EXPECT_EQ(run.exit_status, 0);
  EXPECT_EQ(box.List(MetadataOf("a.png")), MarkerNames("XL B M L SM S"));
  EXPECT_EQ(box.List(MetadataOf("b.png")), MarkerNames("XL B M L SM S"));
  ASSERT_EQ(run.log.size(), 2U) << "one line per photo";
  EXPECT_THAT(run.log[0].text, ::testing::HasSubstr("/usr/keldo/bin/convert-thumb"));
}

TEST_F(JobFailureTest, MarkersThatCannotBeRemovedAreLogged) {
  box.MakeDirectory(MetadataOf("a.png") + "/KELDOPHOTO_THUMB_M.fail");
  box.Write(MetadataOf("a.png") + "/other.fail", "");
  box.Write(MetadataOf("a.png") + "/keep.txt", "");
  const RunResult run = box.RunOn();
  EXPECT_THAT(run.log, ElementsAre(ErrorLine("keldothumb:956 Failed to remove files by pattern "
                                             "[/volume1/photo/@eaDir/a.png/*.fail]")));
  EXPECT_TRUE(box.Exists(ThumbOf("a.png", "XL"))) << "the photo is done regardless";
  EXPECT_FALSE(box.Exists(MetadataOf("a.png") + "/other.fail"));
  EXPECT_TRUE(box.Exists(MetadataOf("a.png") + "/keep.txt"));
}

TEST_F(JobFailureTest, ReadOnlyVolumeIsLogged) {
  box.MountReadOnly("/volume1");
  const RunResult run = box.RunOn();
  ExpectNothingDone(run);
  EXPECT_THAT(run.log, ElementsAre(ErrorLine(MkdirLine("/volume1/photo/@eaDir", EROFS))));
}

TEST_F(JobFailureTest, PhotoWhoseDirectoryCannotBeMadeIsSkipped) {
  box.MakeDirectory(MetadataOf("a.png"));
  box.MountReadOnly("/volume1/photo/@eaDir");
  const RunResult run = box.RunOn();
  EXPECT_THAT(run.log, ::testing::Contains(ErrorLine(MkdirLine(MetadataOf("b.png"), EROFS))));
  EXPECT_THAT(run.requests, ::testing::Not(::testing::Contains(PostRequest(kPhotoB))));
}

TEST_F(JobFailureTest, FileInPlaceOfTheMetadataDirectory) {
  box.Write("/volume1/photo/@eaDir", "x");
  const RunResult run = box.RunOn();
  ExpectNothingDone(run);
  EXPECT_THAT(run.log, ElementsAre(ErrorLine(MkdirLine(MetadataOf("a.png"), ENOTDIR)),
                                   ErrorLine(MkdirLine(MetadataOf("b.png"), ENOTDIR))));
  EXPECT_EQ(box.Read("/volume1/photo/@eaDir"), "x");
}

TEST_F(JobFailureTest, LockFileThatCannotBeOpened) {
  std::filesystem::create_symlink("nowhere", box.Outside("/volume1/photo/@eaDir"));
  const RunResult run = box.RunOn();
  ExpectNothingDone(run);
  EXPECT_THAT(run.log,
              ElementsAre(ErrorLine("keldothumb:920 Failed to open /volume1/photo/@eaDir")));
}

TEST_F(JobFailureTest, DirectoryLockedElsewhereIsSkipped) {
  box.MakeDirectory("/volume1/photo/@eaDir");
  const UniqueFd other(::open(box.Outside("/volume1/photo/@eaDir").c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(::flock(other.get(), LOCK_EX), 0);
  box.Write("/volume1/second/c.png", box.Read(kPhotoA));
  const RunResult run = box.RunOn({kPhotoDir, "/volume1/second"});
  EXPECT_THAT(run.log,
              ElementsAre(ErrorLine("keldothumb:925 Failed to lock /volume1/photo/@eaDir")));
  EXPECT_THAT(box.List("/volume1/photo/@eaDir"), IsEmpty());
  EXPECT_TRUE(box.Exists("/volume1/second/@eaDir/c.png/KELDOPHOTO_THUMB_XL.jpg"));
  EXPECT_THAT(QueuedDirectories(box), ElementsAre("/volume1/second")) << "nothing else is queued";
}

TEST_F(JobFailureTest, LockIsReleasedAfterTheDirectory) {
  EXPECT_EQ(box.RunOn().exit_status, 0);
  const UniqueFd own(::open(box.Outside("/volume1/photo/@eaDir").c_str(), O_RDONLY | O_CLOEXEC));
  EXPECT_EQ(::flock(own.get(), LOCK_EX | LOCK_NB), 0);
}

TEST_F(JobFailureTest, ConcurrentRunsDoNotRepeatWork) {
  box.Script("convert-thumb", "sleep 100\noutputs jpeg\n");
  const RunResult run = box.Run({"/bin/sh", "-c",
                                 "/program/keldothumb /conf/profile /volume1/photo & "
                                 "while ! [ -s /standins/record ]; do :; done; "
                                 "/program/keldothumb /conf/profile /volume1/photo; wait"});
  EXPECT_EQ(run.invocations.size(), 4U) << "two photos in two phases, each once";
  EXPECT_THAT(run.log,
              ElementsAre(ErrorLine("keldothumb:925 Failed to lock /volume1/photo/@eaDir")));
  EXPECT_EQ(box.List(MetadataOf("a.png")), ThumbNames("XL B M L SM"));
}

TEST_F(JobFailureTest, ReadOnlySpoolIsLogged) {
  box.Remove(kPhotoB);
  box.MountReadOnly("/var/spool");
  const RunResult run = box.RunOn();
  const LogLine counter =
      ErrorLine("keldomk_progress:117 KLIBCFileSetKeyValue fail: /var/spool/conv_progress_photo");
  EXPECT_THAT(run.log, ElementsAre(counter, counter,
                                   ErrorLine("keldothumb:1169 Failed to write [/volume1/photo] "
                                             "to thumb queue")));
  EXPECT_EQ(box.List(MetadataOf("a.png")), ThumbNames("XL B M L SM"));
}

// The photo is mounted on the small volume, so that it takes no space there.
void MountVolumeWithFree(Sandbox& box, std::size_t bytes) {
  box.MountMemory("/volume1/photo", bytes);
  box.Write("/conf/photo.png", EncodeJpeg(FourCorners(64, 48)));
  box.SetTime("/conf/photo.png", kPhotoTime);
  box.MountOver("/conf/photo.png", kPhotoA);
  box.MountOver("/conf/photo.png", kPhotoB);
}

TEST_F(JobFailureTest, NearlyFullVolumeStopsTheDirectory) {
  MountVolumeWithFree(box, kGiB - kPage);
  const RunResult run = box.RunOn();
  EXPECT_EQ(run.exit_status, 0);
  EXPECT_THAT(run.log, ElementsAre(ErrorLine("keldothumb:969 Stopping creating thumbs as the disk "
                                             "space is near full, /volume1/photo/a.png")));
  EXPECT_THAT(run.invocations, IsEmpty());
  EXPECT_THAT(run.requests, IsEmpty());
  EXPECT_FALSE(box.Exists(Sandbox::KeptDirectory(kPhotoDir) + "/@eaDir/b.png"));
  EXPECT_THAT(QueuedDirectories(box), IsEmpty());
}

TEST_F(JobFailureTest, OneGibibyteFreeIsEnough) {
  MountVolumeWithFree(box, kGiB);
  const RunResult run = box.RunOn();
  EXPECT_EQ(Calls(run, "convert-thumb").size(), 2U) << "the first thumbnails have used some of it";
  EXPECT_THAT(run.log, ElementsAre(ErrorLine("keldothumb:969 Stopping creating thumbs as the disk "
                                             "space is near full, /volume1/photo/b.png")));
  EXPECT_THAT(QueuedDirectories(box), ElementsAre(kPhotoDir)) << "the work on a.png is deferred";
}

TEST_F(JobFailureTest, CurrentPhotosAreReportedOnAFullVolumeToo) {
  box.UseProfile("[thumb_xl]\nsize=1280\nfilename=KELDOPHOTO_THUMB_XL.jpg\n");
  EXPECT_EQ(box.Run({"keldothumbctl", "index", "mask", "/volume1", "0"}).exit_status, 0);
  MountVolumeWithFree(box, kPage);
  const RunResult run = box.RunOn();
  EXPECT_THAT(run.log, IsEmpty());
  EXPECT_THAT(run.requests, ElementsAre(PostRequest(kPhotoA), PostRequest(kPhotoB)));
}

}  // namespace
}  // namespace keldo::testing
