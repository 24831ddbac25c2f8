#include "thumbs/keldomk_thumb_status.h"

#include <gtest/gtest.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <utility>
#include <vector>

#include "fakes/core_test.h"
#include "platform/index_ipc.h"
#include "thumbs/paths.h"

namespace keldo {
namespace {

using testing::fake;
using Counts = std::pair<int, int>;
using Texts = std::vector<std::string>;

constexpr int kAllKinds = 63;
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
  // Files and thumbnails.
  static Counts DirCounts(const std::string& directory) {
    const ThumbWork work = GetDirThumbStatus(directory);
    return {work.files, work.thumbnails};
  }
  static Counts TreeCounts(const std::string& root) {
    const ThumbWork work = GetTreeThumbStatus(root);
    return {work.files, work.thumbnails};
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

// ---- A directory ----

TEST_F(ThumbStatusTest, ADirectoryCountsThePhotosThatLackThumbnails) {
  WriteAllThumbs(WritePhoto("done.jpg"));
  WritePhoto("none.jpg");
  WriteThumb(WritePhoto("one.JPG"), "KELDOPHOTO_THUMB_S.jpg");
  fake().dir_masks = {{{Dir(), THUMB_TYPE_PHOTO}, 7}};
  EXPECT_EQ(DirCounts(Dir()), Counts(2, 5));
  EXPECT_EQ(fake().CallsOf({"KELDOIDX_GetDirThumbSizeMap", "KELDOIDX_GetThumbSizeMap"}),
            (Texts{"KELDOIDX_GetDirThumbSizeMap(" + Dir() + ", 1)"}));
  ExpectNoLog();
}

TEST_F(ThumbStatusTest, ADirectoryIsNotEnteredFurther) {
  WritePhoto("sub/a.jpg");
  WritePhoto("b.jpg");
  EXPECT_EQ(DirCounts(Dir()), Counts(1, 6));
}

TEST_F(ThumbStatusTest, OtherFilesAndHiddenNamesAreSkipped) {
  for (const char* name : {"a.txt", "a.mp4", "._a.jpg", "jpg"})
    WritePhoto(name);
  fake().hidden_dirs.insert("hidden.jpg");
  WritePhoto("hidden.jpg");
  WritePhoto("_a.jpg");
  EXPECT_EQ(DirCounts(Dir()), Counts(1, 6));
}

TEST_F(ThumbStatusTest, WithoutADirectoryMaskEveryPhotoIsAskedFor) {
  const std::string first = WritePhoto("a.jpg");
  const std::string second = WritePhoto("b.jpg");
  fake().FailCall("KELDOIDX_GetDirThumbSizeMap");
  fake().file_masks = {{{first, THUMB_TYPE_PHOTO}, 1}, {{second, THUMB_TYPE_PHOTO}, 6}};
  EXPECT_EQ(DirCounts(Dir()), Counts(2, 3));
  EXPECT_EQ(fake().CallsOf({"KELDOIDX_GetThumbSizeMap"}).size(), 2u);
}

TEST_F(ThumbStatusTest, AMissingDirectoryCountsNothing) {
  EXPECT_EQ(DirCounts(In("none")), Counts(0, 0));
  EXPECT_EQ(DirCounts(WritePhoto("a.jpg")), Counts(0, 0));
  ExpectNoLog();
}

TEST_F(ThumbStatusTest, ADirectoryThatCannotBeOpenedIsLogged) {
  WritePhoto("a.jpg");
  fake().FailCall("opendir", 1, EACCES);
  EXPECT_EQ(DirCounts(Dir()), Counts(0, 0));
  ExpectOneLog(LOG_ERR, "keldomk_thumb_status:154 [Error] opendir: " + Dir());
  EXPECT_EQ(fake().CallsOf({"KELDOIDX_GetDirThumbSizeMap"}), Texts{});
}

// ---- A tree ----

TEST_F(ThumbStatusTest, ATreeIsCountedByTheWalksFilter) {
  WritePhoto("a.jpg");
  WritePhoto("sub/b.jpg");
  WritePhoto("sub/deep/c.jpg");
  for (const char* skipped : {"#recycle/x.jpg", "sub/#snapshot/x.jpg", "@eaDir/x.jpg",
                              "Holiday.app/in/x.jpg", "._d/x.jpg"}) {
    WritePhoto(skipped);
  }
  WritePhoto("Holiday.APP/d.jpg");
  fake().default_mask = 1;
  EXPECT_EQ(TreeCounts(Dir()), Counts(4, 4));
  ExpectNoLog();
}

TEST_F(ThumbStatusTest, TheRootPassesThroughTheFilterToo) {
  WritePhoto("#recycle/a.jpg");
  EXPECT_EQ(TreeCounts(In("#recycle")), Counts(0, 0));
}

TEST_F(ThumbStatusTest, EveryTreeStartsAtZero) {
  WritePhoto("a.jpg");
  EXPECT_EQ(TreeCounts(Dir()), Counts(1, 6));
  EXPECT_EQ(TreeCounts(Dir()), Counts(1, 6));
  EXPECT_EQ(TreeCounts(In("none")), Counts(0, 0));
}

TEST_F(ThumbStatusTest, QueuedDirectoriesAddNothing) {
  WritePhoto("in_work/a.jpg");
  WritePhoto("queued/a.jpg");
  WritePhoto("queued/below/a.jpg");
  WritePhoto("open/a.jpg");
  fake().WriteLines(paths::kThumbQueueInWork, {In("in_work")});
  fake().WriteLines(paths::kThumbQueue, {In("queued"), In("open/longer")});
  fake().get_line_finds_longer_lines = true;
  EXPECT_EQ(TreeCounts(Dir()), Counts(2, 12));
}

TEST_F(ThumbStatusTest, QueueingForCountingAlwaysLetsTheWalkGoOn) {
  WritePhoto("a.jpg");
  EXPECT_EQ(QueueDirForCounting(Dir()), 0);
  fake().WriteLines(paths::kThumbQueue, {Dir()});
  EXPECT_EQ(QueueDirForCounting(Dir()), 0);
  EXPECT_EQ(QueueDirForCounting(In("none")), 0);
}

TEST_F(ThumbStatusTest, AQueuedDirectoryIsNotEvenRead) {
  fake().WriteLines(paths::kThumbQueueInWork, {Dir()});
  EXPECT_EQ(QueueDirForCounting(Dir()), 0);
  EXPECT_EQ(fake().calls, (Texts{"KLIBCFileGetLine(/var/spool/thumb_create.queue.tmp, " + Dir() +
                                 ", 4096, 1028)"}));
}

}  // namespace
}  // namespace keldo
