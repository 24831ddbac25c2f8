#include "indexer/indexer.h"

#include <gtest/gtest.h>
#include <syslog.h>

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
using IndexerTest = testing::CoreTest;
using Lines = std::vector<testing::LogLine>;
using Texts = std::vector<std::string>;

constexpr time_t kPhotoTime = 1000000;

class ThumbWorkTest : public testing::CoreTest {
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

// ---- A directory ----

TEST_F(ThumbWorkTest, ADirectoryCountsThePhotosThatLackThumbnails) {
  WriteAllThumbs(WritePhoto("done.jpg"));
  WritePhoto("none.jpg");
  WriteThumb(WritePhoto("one.JPG"), "KELDOPHOTO_THUMB_S.jpg");
  fake().dir_masks = {{{Dir(), THUMB_TYPE_PHOTO}, 7}};
  EXPECT_EQ(DirCounts(Dir()), Counts(2, 5));
  EXPECT_EQ(fake().CallsOf({"KELDOIDX_GetDirThumbSizeMap", "KELDOIDX_GetThumbSizeMap"}),
            (Texts{"KELDOIDX_GetDirThumbSizeMap(" + Dir() + ", 1)"}));
  ExpectNoLog();
}

TEST_F(ThumbWorkTest, SubdirectoriesAreNotCounted) {
  WritePhoto("sub/a.jpg");
  WritePhoto("b.jpg");
  EXPECT_EQ(DirCounts(Dir()), Counts(1, 6));
}

TEST_F(ThumbWorkTest, OtherFilesAndHiddenNamesAreSkipped) {
  for (const char* name : {"a.txt", "a.mp4", "._a.jpg", "jpg"})
    WritePhoto(name);
  fake().hidden_dirs.insert("hidden.jpg");
  WritePhoto("hidden.jpg");
  WritePhoto("_a.jpg");
  EXPECT_EQ(DirCounts(Dir()), Counts(1, 6));
}

TEST_F(ThumbWorkTest, WithoutADirectoryMaskEveryPhotoIsAskedFor) {
  const std::string first = WritePhoto("a.jpg");
  const std::string second = WritePhoto("b.jpg");
  fake().FailCall("KELDOIDX_GetDirThumbSizeMap");
  fake().file_masks = {{{first, THUMB_TYPE_PHOTO}, 1}, {{second, THUMB_TYPE_PHOTO}, 6}};
  EXPECT_EQ(DirCounts(Dir()), Counts(2, 3));
  EXPECT_EQ(fake().CallsOf({"KELDOIDX_GetThumbSizeMap"}).size(), 2u);
}

TEST_F(ThumbWorkTest, AMissingDirectoryCountsNothing) {
  EXPECT_EQ(DirCounts(In("none")), Counts(0, 0));
  EXPECT_EQ(DirCounts(WritePhoto("a.jpg")), Counts(0, 0));
  ExpectNoLog();
}

TEST_F(ThumbWorkTest, ADirectoryThatCannotBeOpenedIsLogged) {
  WritePhoto("a.jpg");
  fake().FailCall("opendir", 1, EACCES);
  EXPECT_EQ(DirCounts(Dir()), Counts(0, 0));
  ExpectOneLog(LOG_ERR, "keldomk_thumb_status:154 [Error] opendir: " + Dir());
  EXPECT_EQ(fake().CallsOf({"KELDOIDX_GetDirThumbSizeMap"}), Texts{});
}

// ---- A tree ----

TEST_F(ThumbWorkTest, TheWalksFilterHoldsForATree) {
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

TEST_F(ThumbWorkTest, TheRootPassesThroughTheFilterToo) {
  WritePhoto("#recycle/a.jpg");
  EXPECT_EQ(TreeCounts(In("#recycle")), Counts(0, 0));
}

TEST_F(ThumbWorkTest, EveryTreeStartsAtZero) {
  WritePhoto("a.jpg");
  EXPECT_EQ(TreeCounts(Dir()), Counts(1, 6));
  EXPECT_EQ(TreeCounts(Dir()), Counts(1, 6));
  EXPECT_EQ(TreeCounts(In("none")), Counts(0, 0));
}

TEST_F(ThumbWorkTest, QueuedDirectoriesAddNothing) {
  WritePhoto("in_work/a.jpg");
  WritePhoto("queued/a.jpg");
  WritePhoto("queued/below/a.jpg");
  WritePhoto("open/a.jpg");
  fake().WriteLines(paths::kThumbQueueInWork, {In("in_work")});
  fake().WriteLines(paths::kThumbQueue, {In("queued"), In("open/longer")});
  fake().get_line_finds_longer_lines = true;
  EXPECT_EQ(TreeCounts(Dir()), Counts(2, 12));
}

TEST_F(ThumbWorkTest, QueueDirForCountingAlwaysReturnsZero) {
  WritePhoto("a.jpg");
  EXPECT_EQ(QueueDirForCounting(Dir()), 0);
  fake().WriteLines(paths::kThumbQueue, {Dir()});
  EXPECT_EQ(QueueDirForCounting(Dir()), 0);
  EXPECT_EQ(QueueDirForCounting(In("none")), 0);
}

TEST_F(ThumbWorkTest, AQueuedDirectoryIsNotEvenRead) {
  fake().WriteLines(paths::kThumbQueueInWork, {Dir()});
  EXPECT_EQ(QueueDirForCounting(Dir()), 0);
  EXPECT_EQ(fake().calls, (Texts{"KLIBCFileGetLine(/var/spool/thumb_create.queue.tmp, " + Dir() +
                                 ", 4096, 1028)"}));
}

// ---- Other questions ----

TEST_F(IndexerTest, EveryKindHasItsBox) {
  for (const ThumbKindInfo& row : kThumbKindTable)
    EXPECT_STREQ(BoxOfKind(row.kind), row.box);
  EXPECT_STREQ(BoxOfKind(THUMB_XL), "1280x1280");
  EXPECT_STREQ(BoxOfKind(THUMB_SM), "240x240");
  ExpectNoLog();
}

TEST_F(IndexerTest, ANegativeKindHasNoBox) {
  EXPECT_EQ(BoxOfKind(-1), nullptr);
  ExpectOneLog(LOG_ERR, "keldomk_util:52 Bad parameters.");
}

TEST_F(IndexerTest, ANumberBeyondTheTableHasNoBox) {
  EXPECT_EQ(BoxOfKind(6), nullptr);
  ExpectNoLog();
}

TEST_F(IndexerTest, HomeSharesLieOnAVolume) {
  for (const char* path : {"/volume1/homes", "/volume/homes", "/volume1/homes/ann/photo"}) {
    EXPECT_TRUE(IsHomeSharePath(path)) << path;
  }
  for (const char* path : {"", "/", "homes", "/volume1", "/volume1/photo", "/volume1/homes2",
                           "/disk/homes", "/x/volume1/homes", "volume1/homes", "//volume1/homes"}) {
    EXPECT_FALSE(IsHomeSharePath(path)) << path;
  }
}

TEST_F(IndexerTest, TheSummaryGivesFractions) {
  fake().WriteLines(paths::kPhotoProgress,
                    {"total=8", "completed=2", "total_thumb=48", "completed_thumb=16"});
  fake().WriteLines(paths::kVideoProgress, {"total=1", "completed=1"});
  LogProgressSummary();
  EXPECT_EQ(
      testing::CapturedSyslog(),
      (Lines{{LOG_ERR, "keldomk_progress:146 ========== Convert Progress =========="},
             {LOG_ERR, "keldomk_progress:147 total_photo: 8, complete_photo: 2, progress: 0.25"},
             {LOG_ERR, "keldomk_progress:148 total_thumb: 48, complete_thumb: 16, progress: 0.33"},
             {LOG_ERR, "keldomk_progress:149 total_video: 1, complete_video: 1, progress: 1.00"}}));
}

TEST_F(IndexerTest, ASummaryWithoutTotalsHasNoProgress) {
  fake().WriteLines(paths::kPhotoProgress, {"total=0", "completed=2"});
  LogProgressSummary();
  EXPECT_EQ(
      testing::CapturedSyslog(),
      (Lines{{LOG_ERR, "keldomk_progress:146 ========== Convert Progress =========="},
             {LOG_ERR, "keldomk_progress:147 total_photo: 0, complete_photo: 2, progress: 0.00"},
             {LOG_ERR, "keldomk_progress:148 total_thumb: 0, complete_thumb: 0, progress: 0.00"},
             {LOG_ERR, "keldomk_progress:149 total_video: 0, complete_video: 0, progress: 0.00"}}));
}

}  // namespace
}  // namespace keldo
