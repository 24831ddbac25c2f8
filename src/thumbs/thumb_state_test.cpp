#include "thumbs/thumb_state.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <syslog.h>

#include <array>
#include <string>
#include <utility>
#include <vector>

#include "fakes/core_test.h"
#include "platform/index_ipc.h"

namespace keldo {
namespace {

using testing::fake;
using Counts = std::pair<int, int>;
using Texts = std::vector<std::string>;

constexpr time_t kPhotoTime = 1000000;

class ThumbStatusTest : public testing::CoreTest {
 protected:
  // A photo dated kPhotoTime in the album.
  std::string WritePhoto(const std::string& name) const {
    std::string path = WriteFile(In(name), "photo");
    SetTime(path, kPhotoTime);
    return path;
  }
  // One thumbnail of a photo, `seconds` after it.
  static std::string WriteThumb(const std::string& photo, const std::string& name, int seconds = 0,
                                const std::string& bytes = "x") {
    const std::size_t slash = photo.rfind('/');
    std::string path =
        WriteFile(photo.substr(0, slash) + "/@eaDir" + photo.substr(slash) + "/" + name, bytes);
    SetTime(path, kPhotoTime + seconds);
    return path;
  }
  static void WriteAllThumbs(const std::string& photo) {
    for (const ThumbKindInfo& row : kThumbKindTable)
      WriteThumb(photo, row.underscore_name);
  }
  // Missing and present.
  static Counts PhotoCounts(const std::string& photo, ThumbSizeMask mask) {
    const PhotoThumbStatus status = GetPhotoThumbStatus(photo, mask);
    return {status.missing, status.present};
  }
};

// ---- One photo ----

TEST_F(ThumbStatusTest, APhotoWithoutMetadataLacksEverything) {
  EXPECT_EQ(PhotoCounts(WritePhoto("a.jpg"), kAllKinds), Counts(6, 0));
  ExpectNoLog();
}

TEST_F(ThumbStatusTest, OneStaleThumbnailIsMissingTheOthersPresent) {
  const std::string photo = WritePhoto("a.jpg");
  WriteAllThumbs(photo);
  const std::string stale = WriteThumb(photo, "KELDOPHOTO_THUMB_S.jpg", -1);
  EXPECT_EQ(PhotoCounts(photo, kAllKinds), Counts(1, 5));
  EXPECT_TRUE(Exists(stale));
  EXPECT_EQ(fake().CallsOf({"RemoveEAFile"}), Texts{});
}

TEST_F(ThumbStatusTest, AnEmptyThumbnailIsMissingAndStays) {
  const std::string photo = WritePhoto("a.jpg");
  const std::string empty = WriteThumb(photo, "KELDOPHOTO_THUMB_M.jpg", 5, "");
  EXPECT_EQ(PhotoCounts(photo, 1 << THUMB_M), Counts(1, 0));
  EXPECT_TRUE(Exists(empty));
}

TEST_F(ThumbStatusTest, TheColonSpellingIsPresent) {
  const std::string photo = WritePhoto("a.jpg");
  WriteThumb(photo, "KELDOPHOTO:THUMB_XL.jpg");
  EXPECT_EQ(PhotoCounts(photo, 1 << THUMB_XL | 1 << THUMB_L), Counts(1, 1));
}

TEST_F(ThumbStatusTest, WantedKindsAreProbedInTheOrderOfTheTable) {
  const std::string photo = WritePhoto("a.jpg");
  EXPECT_EQ(PhotoCounts(photo, 1 << THUMB_M | 1 << THUMB_XL | 1 << THUMB_SM), Counts(3, 0));
  const std::string probe = "GetFileNameEAFileExist(" + In("@eaDir/a.jpg") + ", KELDOPHOTO_THUMB_";
  EXPECT_EQ(
      fake().CallsOf({"GetFileNameEAFileExist"}),
      (Texts{probe + "M.jpg, KELDOPHOTO:THUMB_M.jpg)", probe + "XL.jpg, KELDOPHOTO:THUMB_XL.jpg)",
             probe + "SM.jpg, KELDOPHOTO:THUMB_SM.jpg)"}));
}

TEST_F(ThumbStatusTest, AMaskOfZeroCountsNothing) {
  EXPECT_EQ(PhotoCounts(WritePhoto("a.jpg"), 0), Counts(0, 0));
  EXPECT_EQ(fake().CallsOf({"KELDOIDX_GetThumbSizeMap"}), Texts{});
}

TEST_F(ThumbStatusTest, AMissingPhotoCountsNothing) {
  EXPECT_EQ(PhotoCounts(In("none.jpg"), kAllKinds), Counts(0, 0));
  EXPECT_EQ(fake().calls, (Texts{"DoesFileExist(" + In("none.jpg") + ")"}));
  ExpectNoLog();
}

TEST_F(ThumbStatusTest, WithoutAMetadataDirectoryNothingIsCounted) {
  const std::string photo = WritePhoto("a %s.jpg");
  fake().FailCall("KELDOEADirPath");
  EXPECT_EQ(PhotoCounts(photo, kMaskFromIndex), Counts(0, 0));
  ExpectOneLog(LOG_ERR, "keldomk_thumb_status:92 [Error] get eadir: " + photo);
  EXPECT_EQ(fake().CallsOf({"KELDOIDX_GetThumbSizeMap"}), Texts{});
}

TEST_F(ThumbStatusTest, TheIndexGivesThePhotosOwnMask) {
  const std::string photo = WritePhoto("a.jpg");
  WriteThumb(photo, "KELDOPHOTO_THUMB_S.jpg");
  fake().file_masks = {{{photo, THUMB_TYPE_PHOTO}, 3}};
  EXPECT_EQ(PhotoCounts(photo, kMaskFromIndex), Counts(1, 1));
  EXPECT_EQ(fake().CallsOf({"KELDOIDX_GetThumbSizeMap"}),
            (Texts{"KELDOIDX_GetThumbSizeMap(" + photo + ", 1)"}));
}

TEST_F(ThumbStatusTest, WithoutAMaskNothingIsCounted) {
  const std::string photo = WritePhoto("a.jpg");
  fake().FailCall("KELDOIDX_GetThumbSizeMap");
  EXPECT_EQ(PhotoCounts(photo, kMaskFromIndex), Counts(0, 0));
  ExpectOneLog(LOG_ERR, "keldomk_thumb_status:99 [Error] get thumb size map: " + photo);
}

// A photo dated kPhotoTime, and its metadata directory.
class NeedsThumbnailTest : public testing::CoreTest {
 protected:
  void SetUp() override {
    CoreTest::SetUp();
    WriteFile(photo_, "photo");
    SetTime(photo_, kPhotoTime);
    MakeDir(thumbs_);
  }

  // Writes a thumbnail whose time is `seconds` after the photo's.
  std::string WriteThumb(const std::string& name, int seconds = 0,
                         const std::string& bytes = "x") const {
    std::string path = WriteFile(Thumb(name), bytes);
    SetTime(path, kPhotoTime + seconds);
    return path;
  }
  [[nodiscard]] std::string Thumb(const std::string& name) const { return thumbs_ + "/" + name; }

  void ExpectMetadataDirLog(int line) const {
    ExpectOneLog(LOG_ERR, "keldomk_util:" + std::to_string(line) +
                              " KELDOEADirPath error [0x001F eadir.c:12] on " + photo_);
  }
  static void FailMetadataDir() {
    fake().FailCall("KELDOEADirPath");
    fake().kept_error = {0x1f, "eadir.c", 12};
  }

  const std::string photo_ = In("photos/a %s[1].jpg");
  const std::string thumbs_ = In("photos/@eaDir/a %s[1].jpg");
};

// ---- One thumbnail ----

TEST_F(NeedsThumbnailTest, AMissingThumbnailIsNeeded) {
  EXPECT_TRUE(NeedsThumbnail(photo_, "KELDOPHOTO_THUMB_S.jpg"));
  ExpectNoLog();
}

TEST_F(NeedsThumbnailTest, AThumbnailOfTheSameSecondIsCurrent) {
  WriteThumb("KELDOPHOTO_THUMB_S.jpg");
  EXPECT_FALSE(NeedsThumbnail(photo_, "KELDOPHOTO_THUMB_S.jpg"));
}

TEST_F(NeedsThumbnailTest, AThumbnailOneSecondOlderIsNot) {
  WriteThumb("KELDOPHOTO_THUMB_S.jpg", -1);
  EXPECT_TRUE(NeedsThumbnail(photo_, "KELDOPHOTO_THUMB_S.jpg"));
}

TEST_F(NeedsThumbnailTest, PartsOfASecondDoNotCount) {
  const std::string path = WriteThumb("KELDOPHOTO_THUMB_S.jpg");
  const std::array<timespec, 2> late{{{kPhotoTime, 999999999}, {kPhotoTime, 999999999}}};
  ASSERT_EQ(utimensat(AT_FDCWD, photo_.c_str(), late.data(), 0), 0);
  EXPECT_FALSE(NeedsThumbnail(photo_, "KELDOPHOTO_THUMB_S.jpg"));
}

TEST_F(NeedsThumbnailTest, AnEmptyThumbnailIsNeededWhateverItsTime) {
  WriteThumb("KELDOPHOTO_THUMB_S.jpg", 10, "");
  EXPECT_TRUE(NeedsThumbnail(photo_, "KELDOPHOTO_THUMB_S.jpg"));
  ExpectNoLog();
}

TEST_F(NeedsThumbnailTest, OnlyTheGivenSpellingIsLookedAt) {
  WriteThumb("KELDOPHOTO:THUMB_S.jpg");
  EXPECT_TRUE(NeedsThumbnail(photo_, "KELDOPHOTO_THUMB_S.jpg"));
  EXPECT_FALSE(NeedsThumbnail(photo_, "KELDOPHOTO:THUMB_S.jpg"));
}

TEST_F(NeedsThumbnailTest, AMissingPhotoNeedsNothing) {
  EXPECT_FALSE(NeedsThumbnail(In("none"), "KELDOPHOTO_THUMB_S.jpg"));
  ExpectOneLog(LOG_ERR, "keldomk_util:69 Fail to get " + In("none") + " file information");
  EXPECT_EQ(fake().calls, Texts{});
}

TEST_F(NeedsThumbnailTest, WithoutAMetadataDirectoryNothingIsNeeded) {
  FailMetadataDir();
  EXPECT_FALSE(NeedsThumbnail(photo_, "KELDOPHOTO_THUMB_S.jpg"));
  ExpectMetadataDirLog(74);
  EXPECT_EQ(fake().calls, (Texts{"KELDOEADirPath(" + photo_ + ", 4096)"}));
}

}  // namespace
}  // namespace keldo
