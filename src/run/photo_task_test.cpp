#include <syslog.h>
#include <unistd.h>

#include "run/thumb_job.h"
#include "support/job_test.h"

namespace keldo::testing {
namespace {

// When the tests' jobs began.
constexpr time_t kStartTime = 9000;

class PhotoTaskTest : public JobTest {
 protected:
  PhotoOutcome Run(const std::string& name = "a.png") const {
    return PhotoTask(job_, name, kStartTime).Run();
  }
};

// ---- A new photo ----

TEST_F(PhotoTaskTest, ANewPhotoGetsTwoPhasesAndIsDeferred) {
  const std::string photo = Photo("a.png");
  MakeDir(Ea("a.png"));
  EXPECT_EQ(Run(), PhotoOutcome::kDeferred);
  EXPECT_EQ(Made("a.png"), (Texts{"XL", "B", "M", "L", "SM"}));
  EXPECT_EQ(Marked("a.png"), Texts{});
  EXPECT_EQ(Packets(), (Texts{"GET_INDEX_VERSION " + photo, "POST_PHOTO_CONVERT " + photo}));
  EXPECT_EQ(Progress(), (Texts{"completed_thumb=5"}));
  ExpectNoLog();
}

TEST_F(PhotoTaskTest, TheStepsOfANewPhotoComeInOrder) {
  const std::string photo = Photo("a.png");
  MakeDir(Ea("a.png"));
  EXPECT_EQ(Run(), PhotoOutcome::kDeferred);
  const std::string converter = "ProcessRunner::run(/usr/keldo/bin/convert-thumb, true, false)";
  const std::string set = "KLIBCFileSetKeyValue(/var/spool/conv_progress_photo, completed_thumb, ";
  EXPECT_EQ(
      fake().CallsOf({"GlobFiles", "KLIBGetFsAvailSize", "ProcessRunner::run", "AutoSendRecvPacket",
                      "KLIBCFileSetKeyValue", "KELDOIDX_IndexConvertAdd"}),
      (Texts{"GlobFiles(" + Ea("a.png") + ", *.fail)", "KLIBGetFsAvailSize(" + job_.path + ")",
             "AutoSendRecvPacket(GET_INDEX_VERSION)", converter,
             "KELDOIDX_IndexConvertAdd(" + photo + ", " + Thumb("a.png", "XL") + ")", set + "3, 0)",
             converter, set + "5, 0)", "AutoSendRecvPacket(POST_PHOTO_CONVERT)"}));
}

TEST_F(PhotoTaskTest, TheSecondPhaseIsMadeFromTheBaseThumbnail) {
  const std::string photo = Photo("a.png");
  MakeDir(Ea("a.png"));
  EXPECT_EQ(Run(), PhotoOutcome::kDeferred);
  ASSERT_EQ(LargestBoxes(), (Texts{"1280x1280>^", "800x800>^"}));
  const Command& first = fake().runs[0];
  EXPECT_EQ(first.at(4), photo);
  EXPECT_EQ(std::count(first.begin(), first.end(), "-auto-orient"), 3);
  EXPECT_EQ(std::count(first.begin(), first.end(), "+profile"), 3);
  const Command& second = fake().runs[1];
  EXPECT_EQ(second.at(4), Thumb("a.png", "XL"));
  for (const char* option : {"-auto-orient", "-rotate", "+profile"}) {
    EXPECT_EQ(std::count(second.begin(), second.end(), option), 0) << option;
  }
}

TEST_F(PhotoTaskTest, TheMetadataDirectoryOfANewPhotoIsMade) {
  Photo("a.png");
  MakeDir(job_.path + "/@eaDir");
  EXPECT_EQ(Run(), PhotoOutcome::kDeferred);
  EXPECT_EQ(Mode(Ea("a.png")), 0777u);
}

// ---- Nothing to do ----

TEST_F(PhotoTaskTest, TheDaemonIsNotifiedOfACurrentPhoto) {
  const std::string photo = Photo("a.png");
  MakeThumbs("a.png", {"XL", "B", "M", "L", "SM", "S"});
  fake().default_free_bytes = 0;
  EXPECT_EQ(Run(), PhotoOutcome::kDone);
  EXPECT_EQ(Packets(), (Texts{"POST_PHOTO_CONVERT " + photo}));
  EXPECT_TRUE(fake().runs.empty());
  EXPECT_EQ(Progress(), Texts{});
  ExpectNoLog();
}

TEST_F(PhotoTaskTest, OnlyKindsWithAProfileAreMade) {
  const std::string photo = Photo("a.png");
  ThumbProfileList few;
  LoadProfiles(few, In("few.conf"), "[thumb]\nfilename=KELDOPHOTO_THUMB_S.jpg\n");
  MakeThumbs("a.png", {"S"});
  EXPECT_EQ(PhotoTask({job_.path, &few}, "a.png", kStartTime).Run(), PhotoOutcome::kDone);
  EXPECT_EQ(Packets(), (Texts{"POST_PHOTO_CONVERT " + photo}));
  EXPECT_TRUE(fake().runs.empty());
}

TEST_F(PhotoTaskTest, APhotoThatVanishedIsSkipped) {
  MakeDir(job_.path + "/@eaDir");
  EXPECT_EQ(Run(), PhotoOutcome::kDone);
  EXPECT_FALSE(Exists(Ea("a.png")));
  EXPECT_EQ(fake().calls, (Texts{"KLIBCFileStat(" + job_.path + "/a.png, 9)"}));
  ExpectNoLog();
}

TEST_F(PhotoTaskTest, APhotoWithoutAMetadataDirectoryIsSkipped) {
  Photo("a.png");
  EXPECT_EQ(Run(), PhotoOutcome::kDone);
  EXPECT_TRUE(fake().packets.empty());
  ExpectNoLog();
}

TEST_F(PhotoTaskTest, OnlyARegularFileIsRendered) {
  MakeDir(job_.path + "/a.png");
  MakeDir(Ea("a.png"));
  EXPECT_EQ(Run(), PhotoOutcome::kDone);
  EXPECT_TRUE(fake().packets.empty());
  EXPECT_TRUE(fake().runs.empty());
  EXPECT_EQ(Progress(), Texts{});
  ExpectNoLog();
}

// ---- A fresh attempt ----

TEST_F(PhotoTaskTest, FailureMarkersOfEarlierRunsAreRemoved) {
  Photo("a.png");
  MakeThumbs("a.png", {"XL", "B", "M", "L", "SM", "S"});
  WriteFile(Marker("a.png", "XL"), "");
  WriteFile(Ea("a.png") + "/other.fail", "");
  WriteFile(Ea("a.png") + "/other.failed", "");
  EXPECT_EQ(Run(), PhotoOutcome::kDone);
  EXPECT_FALSE(Exists(Marker("a.png", "XL")));
  EXPECT_FALSE(Exists(Ea("a.png") + "/other.fail"));
  EXPECT_TRUE(Exists(Ea("a.png") + "/other.failed"));
}

TEST_F(PhotoTaskTest, AMarkerThatCannotBeRemovedIsLoggedAndTheWorkGoesOn) {
  Photo("a.png");
  MakeDir(Ea("a.png") + "/directory.fail");
  EXPECT_EQ(Run(), PhotoOutcome::kDeferred);
  ExpectOneLog(LOG_ERR,
               "keldothumb:956 Failed to remove files by pattern [" + Ea("a.png") + "/*.fail]");
  EXPECT_EQ(fake().CallsOf({"AppLogError"}), (Texts{"AppLogError(3)"}));
}

// ---- Disk space ----

TEST_F(PhotoTaskTest, AFullVolumeStopsTheDirectory) {
  const std::string photo = Photo("a.png");
  MakeDir(Ea("a.png"));
  fake().free_bytes[job_.path] = 1073741823;
  EXPECT_EQ(Run(), PhotoOutcome::kStopDirectory);
  ExpectOneLog(LOG_ERR,
               "keldothumb:969 Stopping creating thumbs as the disk space is near full, " + photo);
  EXPECT_TRUE(fake().packets.empty());
  EXPECT_TRUE(fake().runs.empty());

  fake().free_bytes[job_.path] = 1073741824;
  EXPECT_EQ(Run(), PhotoOutcome::kDeferred);
}

// ---- The start phase ----

TEST_F(PhotoTaskTest, TheLastPhaseAloneFinishesThePhoto) {
  const std::string photo = Photo("a.png");
  MakeThumbs("a.png", {"XL", "B", "M", "L", "SM"});
  EXPECT_EQ(Run(), PhotoOutcome::kDone);
  ASSERT_EQ(LargestBoxes(), (Texts{"120x120>"}));
  EXPECT_EQ(fake().runs[0].at(4), Thumb("a.png", "XL"));
  EXPECT_TRUE(Exists(Thumb("a.png", "S")));
  EXPECT_EQ(Progress(), (Texts{"completed=1", "completed_thumb=1"}));
  EXPECT_EQ(Packets(), (Texts{"GET_INDEX_VERSION " + photo, "POST_PHOTO_CONVERT " + photo}));
  EXPECT_TRUE(fake().convert_reports.empty());
}

TEST_F(PhotoTaskTest, AStaleSecondPhaseStartsTheWork) {
  Photo("a.png");
  MakeThumbs("a.png", {"XL", "B", "M", "L", "SM", "S"});
  SetTime(Thumb("a.png", "L"), kPhotoTime - 1);
  EXPECT_EQ(Run(), PhotoOutcome::kDeferred);
  EXPECT_EQ(LargestBoxes(), (Texts{"800x800>^"}));
  EXPECT_EQ(ReadFile(Thumb("a.png", "L")), "thumbnail");
  EXPECT_EQ(Progress(), (Texts{"completed_thumb=2"}));
}

TEST_F(PhotoTaskTest, ABaseThumbnailOfOneByteIsRenderedAgain) {
  Photo("a.png");
  MakeThumbs("a.png", {"B", "M", "L", "SM"});
  SetTime(WriteFile(Thumb("a.png", "XL"), "x"), kThumbTime);
  EXPECT_EQ(Run(), PhotoOutcome::kDeferred);
  EXPECT_EQ(LargestBoxes().at(0), "1280x1280>^");
  EXPECT_EQ(ReadFile(Thumb("a.png", "XL")), "thumbnail");
}

TEST_F(PhotoTaskTest, ABaseThumbnailInTheColonSpellingIsUsed) {
  Photo("a.png");
  MakeThumbs("a.png", {"B", "M", "L", "SM"});
  const std::string base = WriteFile(Ea("a.png") + "/KELDOPHOTO:THUMB_XL.jpg", "existing");
  SetTime(base, kThumbTime);
  EXPECT_EQ(Run(), PhotoOutcome::kDone);
  EXPECT_EQ(fake().runs.at(0).at(4), base);
}

TEST_F(PhotoTaskTest, WithoutABaseProfileNothingIsMade) {
  const std::string photo = Photo("a.png");
  MakeDir(Ea("a.png"));
  ThumbProfileList later;
  LoadProfiles(later, In("later.conf"), "[thumb]\nfilename=KELDOPHOTO_THUMB_S.jpg\nphase=1\n");
  EXPECT_EQ(PhotoTask({job_.path, &later}, "a.png", kStartTime).Run(), PhotoOutcome::kDone);
  EXPECT_TRUE(fake().runs.empty());
  EXPECT_EQ(Packets(), (Texts{"GET_INDEX_VERSION " + photo}));
  EXPECT_EQ(Progress(), Texts{});
}

TEST_F(PhotoTaskTest, WithoutABaseThumbnailNothingIsMade) {
  const std::string photo = Photo("a.png");
  MakeThumbs("a.png", {"XL", "B", "M", "L", "SM"});
  const auto answer = fake().on_packet;
  fake().on_packet = [&](const Json::Value& request) {
    unlink(Thumb("a.png", "XL").c_str());
    return answer(request);
  };
  EXPECT_EQ(Run(), PhotoOutcome::kDone);
  EXPECT_TRUE(fake().runs.empty());
  EXPECT_EQ(Packets(), (Texts{"GET_INDEX_VERSION " + photo}));
  EXPECT_EQ(Progress(), Texts{});
}

// ---- Failure ----

TEST_F(PhotoTaskTest, AFailedFirstPhaseFailsThePhoto) {
  const std::string photo = Photo("a.png");
  MakeThumbs("a.png", {"M", "L", "S"});
  failing_boxes_ = {"1280x1280>^"};
  EXPECT_EQ(Run(), PhotoOutcome::kDone);
  EXPECT_EQ(LargestBoxes(), (Texts{"1280x1280>^"}));
  EXPECT_EQ(Made("a.png"), Texts{});
  EXPECT_EQ(Marked("a.png"), (Texts{"XL", "B", "M", "L", "SM", "S"}));
  EXPECT_EQ(Progress(), (Texts{"completed=1", "completed_thumb=6"}));
  EXPECT_EQ(Packets(), (Texts{"GET_INDEX_VERSION " + photo, "POST_PHOTO_CONVERT " + photo}));
  EXPECT_TRUE(fake().convert_reports.empty());
}

TEST_F(PhotoTaskTest, AFailedSecondPhaseFailsTheThirdToo) {
  const std::string photo = Photo("a.png");
  MakeDir(Ea("a.png"));
  failing_boxes_ = {"800x800>^"};
  EXPECT_EQ(Run(), PhotoOutcome::kDone);
  EXPECT_EQ(Made("a.png"), (Texts{"XL", "B", "M"}));
  EXPECT_EQ(Marked("a.png"), (Texts{"L", "SM", "S"}));
  EXPECT_EQ(Progress(), (Texts{"completed_thumb=6", "completed=1"}));
  EXPECT_EQ(Packets().back(), "POST_PHOTO_CONVERT " + photo);
}

TEST_F(PhotoTaskTest, AFailedSecondPhaseByItselfCountsItselfAndTheThird) {
  Photo("a.png");
  MakeThumbs("a.png", {"XL", "B", "M"});
  failing_boxes_ = {"800x800>^"};
  EXPECT_EQ(Run(), PhotoOutcome::kDone);
  EXPECT_EQ(Progress(), (Texts{"completed=1", "completed_thumb=3"}));
}

TEST_F(PhotoTaskTest, AFailedThirdPhaseCountsAsDone) {
  const std::string photo = Photo("a.png");
  MakeThumbs("a.png", {"XL", "B", "M", "L", "SM"});
  failing_boxes_ = {"120x120>"};
  EXPECT_EQ(Run(), PhotoOutcome::kDone);
  EXPECT_EQ(Made("a.png"), (Texts{"XL", "B", "M", "L", "SM"}));
  EXPECT_EQ(Marked("a.png"), (Texts{"S"}));
  EXPECT_EQ(Progress(), (Texts{"completed=1", "completed_thumb=1"}));
  EXPECT_EQ(Packets().back(), "POST_PHOTO_CONVERT " + photo);
}

// ---- Orientation ----

TEST_F(PhotoTaskTest, AnIndexedPhotoIsRotatedLikeItsThumbnails) {
  Photo("a.png");
  MakeThumbs("a.png", {"S"});
  fake().image_sizes[Thumb("a.png", "S")] = {90, 120};
  fake().on_popen = [](const PopenCall& call) {
    return call.argv.at(3).ends_with("Temp_270.jpg") ? "1 (0.1)\n" : "2 (0.1)\n";
  };
  index_version_ = 1;
  EXPECT_EQ(Run(), PhotoOutcome::kDeferred);
  // The two candidates, then the phases.
  ASSERT_EQ(LargestBoxes(), (Texts{"120x120>", "120x120>", "1280x1280>^", "800x800>^"}));
  const Command& phase0 = fake().runs[2];
  EXPECT_EQ(std::count(phase0.begin(), phase0.end(), "-auto-orient"), 0);
  EXPECT_EQ(ArgumentOf(phase0, "-rotate"), "270");
  EXPECT_EQ(ArgumentOf(fake().runs[3], "-rotate"), "");
}

TEST_F(PhotoTaskTest, AnIndexedPhotoWithoutThumbnailsIsNotRotated) {
  Photo("a.png");
  MakeDir(Ea("a.png"));
  index_version_ = 7;
  EXPECT_EQ(Run(), PhotoOutcome::kDeferred);
  const Command& phase0 = fake().runs.at(0);
  EXPECT_EQ(std::count(phase0.begin(), phase0.end(), "-auto-orient"), 0);
  EXPECT_EQ(std::count(phase0.begin(), phase0.end(), "-rotate"), 0);
}

TEST_F(PhotoTaskTest, OnlyTheFirstPhaseDetectsTheRotation) {
  Photo("a.png");
  MakeThumbs("a.png", {"XL", "B", "M", "L", "SM"});
  index_version_ = 1;
  EXPECT_EQ(Run(), PhotoOutcome::kDone);
  EXPECT_EQ(LargestBoxes(), (Texts{"120x120>"}));
  EXPECT_TRUE(fake().popens.empty());
}

TEST_F(PhotoTaskTest, WithoutADaemonTheOrientationTagIsFollowed) {
  Photo("a.png");
  MakeThumbs("a.png", {"S"});
  fake().on_packet = nullptr;
  EXPECT_EQ(Run(), PhotoOutcome::kDeferred);
  EXPECT_EQ(LargestBoxes(), (Texts{"1280x1280>^", "800x800>^"}));
  EXPECT_EQ(std::count(fake().runs[0].begin(), fake().runs[0].end(), "-auto-orient"), 3);
  EXPECT_EQ(CapturedSyslog(), (std::vector<LogLine>{{LOG_ERR, "keldomk_ipc:59 fail"},
                                                    {LOG_ERR, "keldomk_ipc:139 fail"}}));
}

}  // namespace
}  // namespace keldo::testing
