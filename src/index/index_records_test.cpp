#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "index/index_database.h"
#include "support/temp_dir.h"

namespace keldo::index {
namespace {

using keldoindexutils::MediaInfo;

class IndexRecordsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    IndexDatabase::OpenResult opened = IndexDatabase::OpenOrCreate(path_);
    ASSERT_TRUE(opened.database) << opened.problem;
    database_ = std::move(opened.database);
  }

  std::optional<int> Version(const std::string& path) {
    std::optional<int> found = -99;
    EXPECT_TRUE(database_->FindVersion(path, found)) << database_->problem();
    return found;
  }
  std::optional<std::int64_t> Finished(const std::string& path) {
    std::optional<std::int64_t> found = -99;
    EXPECT_TRUE(database_->FindFinished(path, found)) << database_->problem();
    return found;
  }
  std::optional<bool> Conversion(int type) {
    std::optional<bool> found = false;
    EXPECT_TRUE(database_->FindConversion(type, found)) << database_->problem();
    return found;
  }
  std::optional<MediaInfo> Media(const std::string& path, int type) {
    std::optional<MediaInfo> found = MediaInfo();
    EXPECT_TRUE(database_->FindMedia(path, type, found)) << database_->problem();
    return found;
  }

  testing::TempDir dir_;
  std::string path_ = dir_.path() + "/index.db";
  std::unique_ptr<IndexDatabase> database_;
};

const std::string kOddPath("/v/a\xFF\n'%\".jpg");

TEST_F(IndexRecordsTest, VersionsAreThoseThatWereSet) {
  EXPECT_EQ(Version(kOddPath), std::nullopt);
  ASSERT_TRUE(database_->SetVersion(kOddPath, 3));
  ASSERT_TRUE(database_->SetVersion("/v/b.jpg", -1));
  EXPECT_EQ(Version(kOddPath), 3);
  EXPECT_EQ(Version("/v/b.jpg"), -1);
  ASSERT_TRUE(database_->SetVersion(kOddPath, 4));
  EXPECT_EQ(Version(kOddPath), 4);
  EXPECT_EQ(Version("/v/a"), std::nullopt);
}

TEST_F(IndexRecordsTest, ALaterFinishReplacesTheTimeAndLeavesTheVersion) {
  EXPECT_EQ(Finished(kOddPath), std::nullopt);
  ASSERT_TRUE(database_->AddFinished(kOddPath, 5000000000));
  EXPECT_EQ(Finished(kOddPath), 5000000000);
  ASSERT_TRUE(database_->AddFinished(kOddPath, 5000000001));
  EXPECT_EQ(Finished(kOddPath), 5000000001);
  EXPECT_EQ(Version(kOddPath), std::nullopt);
}

TEST_F(IndexRecordsTest, ConversionIsSwitchedByType) {
  EXPECT_EQ(Conversion(1), std::nullopt);
  ASSERT_TRUE(database_->SetConversion(1, false));
  ASSERT_TRUE(database_->SetConversion(2, true));
  EXPECT_EQ(Conversion(1), false);
  EXPECT_EQ(Conversion(2), true);
  ASSERT_TRUE(database_->SetConversion(1, true));
  EXPECT_EQ(Conversion(1), true);
}

TEST_F(IndexRecordsTest, MediaRecordsAreKeptByPathAndDatabase) {
  EXPECT_FALSE(Media(kOddPath, 1));
  MediaInfo media;
  media.path(kOddPath);
  media.resolution_x(1920);
  media.resolution_y(1080);
  media.photo_rotation(6);
  media.frame_bitrate(2147483647);
  ASSERT_TRUE(database_->SetMedia(media, 1));
  media.resolution_x(7);
  ASSERT_TRUE(database_->SetMedia(media, 0));

  const std::optional<MediaInfo> found = Media(kOddPath, 1);
  ASSERT_TRUE(found);
  EXPECT_EQ(found->path(), kOddPath);
  EXPECT_EQ(found->resolution_x(), 1920);
  EXPECT_EQ(found->resolution_y(), 1080);
  EXPECT_EQ(found->photo_rotation(), 6);
  EXPECT_EQ(found->frame_bitrate(), 2147483647);
  ASSERT_TRUE(Media(kOddPath, 0));
  EXPECT_EQ(Media(kOddPath, 0)->resolution_x(), 7);
  EXPECT_FALSE(Media(kOddPath, 2));
}

TEST_F(IndexRecordsTest, ReportedSizesOfAPhotoAreFound) {
  std::optional<MediaInfo> found = MediaInfo();
  ASSERT_TRUE(database_->FindResolution(kOddPath, found));
  EXPECT_FALSE(found);
  ASSERT_TRUE(database_->SetResolution({kOddPath, 6000, 4000}, {"/v/thumb", 320, 213}));
  ASSERT_TRUE(database_->FindResolution(kOddPath, found));
  ASSERT_TRUE(found);
  EXPECT_EQ(found->path(), kOddPath);
  EXPECT_EQ(found->resolution_x(), 6000);
  EXPECT_EQ(found->resolution_y(), 4000);
  EXPECT_EQ(found->photo_rotation(), 0);
}

TEST_F(IndexRecordsTest, TheThumbnailThatWasReportedWithAPhotoIsFound) {
  std::optional<Measured> found = Measured();
  ASSERT_TRUE(database_->FindMeasuredThumbnail(kOddPath, found));
  EXPECT_FALSE(found);
  ASSERT_TRUE(database_->SetResolution({kOddPath, 6000, 4000}, {kOddPath + "/t", 320, 213}));
  ASSERT_TRUE(database_->FindMeasuredThumbnail(kOddPath, found));
  ASSERT_TRUE(found);
  EXPECT_EQ(found->path, kOddPath + "/t");
  EXPECT_EQ(found->width, 320);
  EXPECT_EQ(found->height, 213);
}

TEST_F(IndexRecordsTest, MasksAreListedInOrder) {
  std::vector<MaskRecord> masks(1);
  ASSERT_TRUE(database_->ListMasks(masks));
  EXPECT_TRUE(masks.empty());
  ASSERT_TRUE(database_->SetMask("/v/b", 1, 0));
  ASSERT_TRUE(database_->SetMask(kOddPath, 2, 7));
  ASSERT_TRUE(database_->SetMask(kOddPath, 1, 63));
  ASSERT_TRUE(database_->ListMasks(masks));
  ASSERT_EQ(masks.size(), 3U);
  EXPECT_EQ(masks[0].directory, kOddPath);
  EXPECT_EQ(masks[0].type, 1);
  EXPECT_EQ(masks[0].mask, 63);
  EXPECT_EQ(masks[1].type, 2);
  EXPECT_EQ(masks[1].mask, 7);
  EXPECT_EQ(masks[2].directory, "/v/b");
}

TEST_F(IndexRecordsTest, AFilesMediaRecordsAreListedInOrder) {
  MediaInfo media;
  media.path("/v/other");
  ASSERT_TRUE(database_->SetMedia(media, 0));
  media.path(kOddPath);
  media.resolution_x(1920);
  media.frame_bitrate(7);
  ASSERT_TRUE(database_->SetMedia(media, 1));
  media.resolution_y(1080);
  media.photo_rotation(6);
  ASSERT_TRUE(database_->SetMedia(media, 0));
  std::vector<MediaRecord> records;
  ASSERT_TRUE(database_->ListMedia(kOddPath, records));
  ASSERT_EQ(records.size(), 2U);
  EXPECT_EQ(records[0].database, 0);
  EXPECT_EQ(records[0].media.path(), kOddPath);
  EXPECT_EQ(records[0].media.resolution_x(), 1920);
  EXPECT_EQ(records[0].media.resolution_y(), 1080);
  EXPECT_EQ(records[0].media.photo_rotation(), 6);
  EXPECT_EQ(records[0].media.frame_bitrate(), 7);
  EXPECT_EQ(records[1].database, 1);
  EXPECT_EQ(records[1].media.resolution_y(), 0);
}

TEST_F(IndexRecordsTest, RecordsAreCountedByWhatTheyTell) {
  MediaInfo media;
  media.path("/v/a");
  ASSERT_TRUE(database_->SetMedia(media, 0));
  ASSERT_TRUE(database_->SetMedia(media, 1));
  for (const char* path : {"/v/a", "/v/b"})
    ASSERT_TRUE(database_->AddFinished(path, 1));
  for (const char* path : {"/v/a", "/v/b", "/v/c"})
    ASSERT_TRUE(database_->SetVersion(path, 1));
  for (const char* path : {"/v/a", "/v/b", "/v/c", "/v/d"})
    ASSERT_TRUE(database_->SetResolution({path, 1, 1}, {"/t", 1, 1}));
  IndexCounts counts;
  ASSERT_TRUE(database_->CountRecords(counts));
  EXPECT_EQ(counts.media, 1);
  EXPECT_EQ(counts.finished, 2);
  EXPECT_EQ(counts.versions, 3);
  EXPECT_EQ(counts.resolutions, 4);
}

}  // namespace
}  // namespace keldo::index
