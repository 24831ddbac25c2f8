#include <unistd.h>

#include <filesystem>

#include "fakes/core_test.h"
#include "render/pipeline.h"
#include "thumbs/thumb_state.h"

namespace keldo::testing {
namespace {

using Texts = std::vector<std::string>;

ThumbProfile ProfileOf(const std::string& filename) {
  return ThumbProfile({320, 80, "", filename, 0});
}

class MarkersTest : public CoreTest {
 protected:
  void SetUp() override {
    CoreTest::SetUp();
    MakeDir(ea_);
  }

  void Make(const Texts& names) const {
    for (const std::string& name : names)
      WriteFile(ea_ + "/" + name, "x");
  }

  // Which of the names exist.
  [[nodiscard]] Texts Left(const Texts& names) const {
    Texts left;
    for (const std::string& name : names) {
      if (Exists(ea_ + "/" + name)) left.push_back(name);
    }
    return left;
  }

  const std::string ea_ = In("ea");
  const ThumbProfile profile_ = ProfileOf("KELDOPHOTO:THUMB_M.jpg");
};

// ---- Removal ----

TEST_F(MarkersTest, ThumbnailAndMarkerGoInBothSpellings) {
  const Texts own{"KELDOPHOTO_THUMB_M.jpg", "KELDOPHOTO:THUMB_M.jpg", "KELDOPHOTO_THUMB_M.fail",
                  "KELDOPHOTO:THUMB_M.fail"};
  const Texts others{"KELDOPHOTO_THUMB_L.jpg", "KELDOPHOTO_THUMB_M", "KELDOPHOTO_THUMB_M.jpg.fail",
                     "M.fail"};
  Make(own);
  Make(others);
  RemoveThumbFiles(profile_, ea_);
  EXPECT_EQ(Left(own), Texts{});
  EXPECT_EQ(Left(others), others);
  RemoveThumbFiles(profile_, ea_);
}

TEST_F(MarkersTest, AnUnderscoreNameHasNoColonTwin) {
  Make({"KELDOPHOTO_THUMB_M.jpg", "KELDOPHOTO:THUMB_M.jpg"});
  RemoveThumbFiles(ProfileOf("KELDOPHOTO_THUMB_M.jpg"), ea_);
  EXPECT_EQ(Left({"KELDOPHOTO_THUMB_M.jpg", "KELDOPHOTO:THUMB_M.jpg"}),
            (Texts{"KELDOPHOTO:THUMB_M.jpg"}));
}

TEST_F(MarkersTest, TheLastDotOfTheWholePathBeginsTheExtension) {
  const std::string marker = WriteFile(In("d.x/photo.fail"), "");
  const std::string thumbnail = WriteFile(In("d.x/photo.png/thumb"), "x");
  RemoveThumbFiles(ProfileOf("thumb"), In("d.x/photo.png"));
  EXPECT_FALSE(Exists(thumbnail));
  EXPECT_FALSE(Exists(marker));
}

// ---- Marking ----

TEST_F(MarkersTest, AMarkerStandsForTheThumbnail) {
  Make({"KELDOPHOTO_THUMB_M.jpg", "KELDOPHOTO:THUMB_M.jpg", "KELDOPHOTO:THUMB_M.fail"});
  MarkThumbFailed(profile_, ea_);
  EXPECT_EQ(Left({"KELDOPHOTO_THUMB_M.jpg", "KELDOPHOTO:THUMB_M.jpg", "KELDOPHOTO_THUMB_M.fail",
                  "KELDOPHOTO:THUMB_M.fail"}),
            (Texts{"KELDOPHOTO_THUMB_M.fail"}));
  EXPECT_EQ(ReadFile(ea_ + "/KELDOPHOTO_THUMB_M.fail"), "");
  EXPECT_EQ(Mode(ea_ + "/KELDOPHOTO_THUMB_M.fail"), 0777u);
}

TEST_F(MarkersTest, AMarkerThatCannotBeRemovedIsEmptied) {
  Make({"KELDOPHOTO_THUMB_M.fail"});
  fake().FailAlways("unlink");
  MarkThumbFailed(profile_, ea_);
  EXPECT_EQ(ReadFile(ea_ + "/KELDOPHOTO_THUMB_M.fail"), "");
}

TEST_F(MarkersTest, WithoutADotThereIsNoMarker) {
  // No directory of the path may have one either, so it is relative.
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(Dir());
  Make({"thumb"});
  MarkThumbFailed(ProfileOf("thumb"), "ea");
  std::filesystem::current_path(before);
  EXPECT_EQ(Left({"thumb", "thumb.fail", ".fail"}), Texts{});
  EXPECT_FALSE(Exists(In(".fail")));
}

TEST_F(MarkersTest, AMarkerThatCannotBeMadeIsSilent) {
  MarkThumbFailed(profile_, In("none"));
  ExpectNoLog();
}

// ---- Freshness ----

TEST_F(MarkersTest, AThumbnailOfThePhotosTimeIsCurrent) {
  const std::string photo = WriteFile(In("a.jpg"), "photo");
  SetTime(photo, 5000);
  const auto is_current = [&](const std::string& name, const std::string& bytes, time_t time) {
    const std::string path = WriteFile(ea_ + "/" + name, bytes);
    SetTime(path, time);
    const bool current = IsThumbUpToDate(profile_, photo, ea_);
    EXPECT_TRUE(Exists(path));
    unlink(path.c_str());
    return current;
  };
  EXPECT_TRUE(is_current("KELDOPHOTO_THUMB_M.jpg", "thumbnail", 5001));
  EXPECT_TRUE(is_current("KELDOPHOTO_THUMB_M.jpg", "thumbnail", 5000));
  EXPECT_FALSE(is_current("KELDOPHOTO_THUMB_M.jpg", "thumbnail", 4999));
  EXPECT_TRUE(is_current("KELDOPHOTO_THUMB_M.jpg", "x", 5000));
  EXPECT_FALSE(is_current("KELDOPHOTO_THUMB_M.jpg", "", 5000));
  EXPECT_TRUE(is_current("KELDOPHOTO:THUMB_M.jpg", "thumbnail", 5000));
  EXPECT_FALSE(is_current("KELDOPHOTO:THUMB_M.jpg", "thumbnail", 4999));
  EXPECT_FALSE(is_current("KELDOPHOTO_THUMB_L.jpg", "thumbnail", 5000));
}

TEST_F(MarkersTest, TimesBeforeTheEpochCompareAsNumbers) {
  const std::string photo = WriteFile(In("a.jpg"), "photo");
  SetTime(photo, -5);
  Make({"KELDOPHOTO_THUMB_M.jpg"});
  SetTime(ea_ + "/KELDOPHOTO_THUMB_M.jpg", 5);
  EXPECT_TRUE(IsThumbUpToDate(profile_, photo, ea_));
}

TEST_F(MarkersTest, WithoutItsPhotoNoThumbnailIsCurrent) {
  Make({"KELDOPHOTO_THUMB_M.jpg"});
  EXPECT_FALSE(IsThumbUpToDate(profile_, In("none.jpg"), ea_));
  EXPECT_EQ(Left({"KELDOPHOTO_THUMB_M.jpg"}), (Texts{"KELDOPHOTO_THUMB_M.jpg"}));
}

}  // namespace
}  // namespace keldo::testing
