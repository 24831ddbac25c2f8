// The job of a camera RAW photo.
#include <syslog.h>
#include <unistd.h>

#include "run/thumb_job.h"
#include "support/job_test.h"

namespace keldo::testing {
namespace {

constexpr time_t kStartTime = 9000;

class RawPhotoTaskTest : public JobTest {
 protected:
  void SetUp() override {
    JobTest::SetUp();
    photo_ = Photo("a.nef");
    MakeDir(Ea("a.nef"));
    fake_libraw().width = 6000;
    fake_libraw().height = 4000;
  }

  [[nodiscard]] PhotoOutcome Run() const { return PhotoTask(job_, "a.nef", kStartTime).Run(); }

  // A preview that is large enough for all thumbnails.
  static void SetPreview() {
    fake_libraw().preview_length = 1;
    fake_libraw().preview_width = 6000;
  }

  [[nodiscard]] bool HasIntermediates() const { return Exists(ppm_) || Exists(preview_); }

  std::string photo_;
  const std::string ppm_ = Ea("a.nef") + "/KELDOPHOTO_RAW_TEMP.ppm";
  const std::string preview_ = Ea("a.nef") + "/KELDOPHOTO_THUMB_RAW.jpg";
};

TEST_F(RawPhotoTaskTest, ARawPhotoIsRenderedFromItsIntermediate) {
  EXPECT_EQ(Run(), PhotoOutcome::kDeferred);
  EXPECT_EQ(Made("a.nef"), (Texts{"XL", "B", "M", "L", "SM"}));
  ASSERT_EQ(LargestBoxes(), (Texts{"1280x1280>^", "800x800>^"}));
  EXPECT_EQ(fake().runs[0].at(4), ppm_);
  EXPECT_EQ(fake().runs[1].at(4), Thumb("a.nef", "XL"));
  EXPECT_FALSE(HasIntermediates());
  EXPECT_EQ(Packets(), (Texts{"GET_INDEX_VERSION " + ppm_, "POST_PHOTO_CONVERT " + photo_}));
  EXPECT_EQ(Progress(), (Texts{"completed_thumb=5"}));
  ASSERT_EQ(fake().convert_reports.size(), 1u);
  EXPECT_EQ(fake().convert_reports[0].source.path(), photo_);
  EXPECT_EQ(fake().convert_reports[0].source.resolution_x(), 6000);
  EXPECT_EQ(fake().convert_reports[0].converted.path(), Thumb("a.nef", "XL"));
  ExpectNoLog();
}

TEST_F(RawPhotoTaskTest, ThePreviewIsRemovedToo) {
  SetPreview();
  keldoindexutils::MediaInfo media;
  media.resolution_x(6000);
  media.resolution_y(4000);
  fake().media_info[preview_] = media;
  fake().on_run = [](const Command& command) {
    return command[0] == paths::kDjpeg ? 1 : WriteOutputs(command);
  };
  EXPECT_EQ(Run(), PhotoOutcome::kDeferred);
  EXPECT_EQ(fake().runs.at(1).at(4), preview_);
  EXPECT_FALSE(HasIntermediates());
}

TEST_F(RawPhotoTaskTest, WhatAFailedPreviewLeftIsRemovedWithTheFullDecode) {
  SetPreview();
  fake_libraw().write_preview = -1;
  EXPECT_EQ(Run(), PhotoOutcome::kDeferred);
  EXPECT_EQ(fake().runs.at(0).at(4), ppm_);
  EXPECT_FALSE(HasIntermediates());
}

TEST_F(RawPhotoTaskTest, TheIntermediateIsRemovedWhenRenderingFails) {
  failing_boxes_ = {"1280x1280>^"};
  EXPECT_EQ(Run(), PhotoOutcome::kDone);
  EXPECT_FALSE(HasIntermediates());
  EXPECT_EQ(Marked("a.nef"), (Texts{"XL", "B", "M", "L", "SM", "S"}));
  EXPECT_EQ(Progress(), (Texts{"completed=1", "completed_thumb=6"}));
  EXPECT_EQ(Packets().back(), "POST_PHOTO_CONVERT " + photo_);
}

TEST_F(RawPhotoTaskTest, AFailedDecodeMarksEveryThumbnail) {
  fake_libraw().write_ppm = -1;
  MakeThumbs("a.nef", {"S"});
  EXPECT_EQ(Run(), PhotoOutcome::kDone);
  EXPECT_EQ(Made("a.nef"), Texts{});
  EXPECT_EQ(Marked("a.nef"), (Texts{"XL", "B", "M", "L", "SM", "S"}));
  EXPECT_EQ(Progress(), (Texts{"completed=1", "completed_thumb=6"}));
  EXPECT_EQ(Packets(), (Texts{"POST_PHOTO_CONVERT " + photo_}));
  EXPECT_TRUE(fake().runs.empty());
  EXPECT_FALSE(HasIntermediates());
  ExpectNoLog();
}

TEST_F(RawPhotoTaskTest, ADecoderThatDiesLeavesNoIntermediate) {
  WriteFile(ppm_, "half");
  WriteFile(preview_, "half");
  fake().FailCall("RunIsolated");
  EXPECT_EQ(Run(), PhotoOutcome::kDone);
  ExpectOneLog(LOG_ERR, "keldothumb:858 [Error] RAW decoder died on " + photo_);
  EXPECT_EQ(Progress(), (Texts{"completed=1", "completed_thumb=6"}));
  EXPECT_FALSE(HasIntermediates());
}

TEST_F(RawPhotoTaskTest, LaterPhasesNeedNoDecode) {
  MakeThumbs("a.nef", {"XL", "B", "M"});
  EXPECT_EQ(Run(), PhotoOutcome::kDeferred);
  EXPECT_TRUE(fake_libraw().calls.empty());
  EXPECT_EQ(Packets().at(0), "GET_INDEX_VERSION " + photo_);
  EXPECT_EQ(fake().runs.at(0).at(4), Thumb("a.nef", "XL"));
}

TEST_F(RawPhotoTaskTest, AnX3fIsDecodedByDcraw) {
  Photo("b.x3f");
  MakeDir(Ea("b.x3f"));
  fake().on_popen = [](const PopenCall& call) {
    return call.argv.at(1) == "-i" ? "Output size: 3 x 2\n" : "bytes";
  };
  EXPECT_EQ(PhotoTask(job_, "b.x3f", kStartTime).Run(), PhotoOutcome::kDeferred);
  EXPECT_EQ(fake().runs.at(0).at(4), Ea("b.x3f") + "/KELDOPHOTO_RAW_TEMP.ppm");
  EXPECT_FALSE(Exists(Ea("b.x3f") + "/KELDOPHOTO_RAW_TEMP.ppm"));
  EXPECT_TRUE(fake_libraw().calls.empty());
}

TEST_F(RawPhotoTaskTest, AnIntermediateThatVanishedEndsThePhoto) {
  fake_libraw().on_step = [&](const std::string& step) {
    if (step.starts_with("WritePpm")) unlink(ppm_.c_str());
  };
  EXPECT_EQ(Run(), PhotoOutcome::kDone);
  EXPECT_TRUE(fake().packets.empty());
  EXPECT_EQ(Progress(), Texts{});
  EXPECT_EQ(Marked("a.nef"), Texts{});
}

TEST_F(RawPhotoTaskTest, AnIndexedRawPhotoIsRotatedFromItsIntermediate) {
  MakeThumbs("a.nef", {"S"});
  fake().image_sizes[Thumb("a.nef", "S")] = {120, 90};
  fake().image_sizes[ppm_] = {6000, 4000};
  fake().on_popen = [](const PopenCall& call) {
    return call.argv.at(3).ends_with("Temp_180.jpg") ? "1 (0.1)\n" : "2 (0.1)\n";
  };
  index_version_ = 1;
  EXPECT_EQ(Run(), PhotoOutcome::kDeferred);
  ASSERT_EQ(LargestBoxes(), (Texts{"120x120>", "120x120>", "1280x1280>^", "800x800>^"}));
  EXPECT_EQ(fake().runs[0].at(4), ppm_);
  EXPECT_EQ(ArgumentOf(fake().runs[2], "-rotate"), "180");
}

// ---- Times ----

TEST_F(RawPhotoTaskTest, TheIntermediateOfAFuturePhotoTakesItsTime) {
  SetTime(photo_, kStartTime + 1);
  time_t intermediate_time = 0;
  fake().on_run = [&](const Command& command) {
    if (command.at(4) == ppm_) intermediate_time = ModificationTime(ppm_);
    return WriteOutputs(command);
  };
  EXPECT_EQ(Run(), PhotoOutcome::kDeferred);
  EXPECT_EQ(fake().CallsOf({"KLIBCFileUTime"}).at(0),
            "KLIBCFileUTime(" + ppm_ + ", 3, 9001, 0, 9001, 0, 71, 72)");
  EXPECT_EQ(intermediate_time, kStartTime + 1);
}

TEST_F(RawPhotoTaskTest, APhotoOfTheJobsFirstSecondIsNotInTheFuture) {
  SetTime(photo_, kStartTime);
  EXPECT_EQ(Run(), PhotoOutcome::kDeferred);
  EXPECT_TRUE(fake().CallsOf({"KLIBCFileUTime"}).empty());
}

}  // namespace
}  // namespace keldo::testing
