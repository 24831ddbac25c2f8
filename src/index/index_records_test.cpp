#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "index/index_database.h"
#include "support/temp_dir.h"

namespace keldo::index {
namespace {

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
  std::optional<MediaRecord> Media(const std::string& path, int type) {
    std::optional<MediaRecord> found = MediaRecord();
    EXPECT_TRUE(database_->FindMedia(path, type, found)) << database_->problem();
    return found;
  }

  testing::TempDir dir_;
  std::string path_ = dir_.path() + "/index.db";
  std::unique_ptr<IndexDatabase> database_;
};

const std::string kOddPath("/v/a\xFF\n'%\".jpg");

TEST_F(IndexRecordsTest, KeepsVersions) {
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
  MediaRecord media;
  media.path = kOddPath;
  media.width = 1920;
  media.height = 1080;
  media.orientation = 6;
  media.bit_rate = 2147483647;
  media.database = 1;
  ASSERT_TRUE(database_->SetMedia(media));
  media.width = 7;
  media.database = 0;
  ASSERT_TRUE(database_->SetMedia(media));

  const std::optional<MediaRecord> found = Media(kOddPath, 1);
  ASSERT_TRUE(found);
  EXPECT_EQ(found->path, kOddPath);
  EXPECT_EQ(found->width, 1920);
  EXPECT_EQ(found->height, 1080);
  EXPECT_EQ(found->orientation, 6);
  EXPECT_EQ(found->bit_rate, 2147483647);
  ASSERT_TRUE(Media(kOddPath, 0));
  EXPECT_EQ(Media(kOddPath, 0)->width, 7);
  EXPECT_FALSE(Media(kOddPath, 2));
}

TEST_F(IndexRecordsTest, FindsTheReportedSizeOfAPhoto) {
  std::optional<Measured> found = Measured();
  ASSERT_TRUE(database_->FindResolution(kOddPath, found));
  EXPECT_FALSE(found);
  ASSERT_TRUE(database_->SetResolution({kOddPath, 6000, 4000}, {"/v/thumb", 320, 213}));
  ASSERT_TRUE(database_->FindResolution(kOddPath, found));
  ASSERT_TRUE(found);
  EXPECT_EQ(found->path, kOddPath);
  EXPECT_EQ(found->width, 6000);
  EXPECT_EQ(found->height, 4000);
}

TEST_F(IndexRecordsTest, FindsTheThumbnailReportedWithAPhoto) {
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

TEST_F(IndexRecordsTest, ListsMasksInOrder) {
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

TEST_F(IndexRecordsTest, ListsAFilesMediaRecordsInOrder) {
  MediaRecord media;
  media.path = "/v/other";
  media.database = 0;
  ASSERT_TRUE(database_->SetMedia(media));
  media.path = kOddPath;
  media.width = 1920;
  media.bit_rate = 7;
  media.database = 1;
  ASSERT_TRUE(database_->SetMedia(media));
  media.height = 1080;
  media.orientation = 6;
  media.database = 0;
  ASSERT_TRUE(database_->SetMedia(media));
  std::vector<MediaRecord> records;
  ASSERT_TRUE(database_->ListMedia(kOddPath, records));
  ASSERT_EQ(records.size(), 2U);
  EXPECT_EQ(records[0].database, 0);
  EXPECT_EQ(records[0].path, kOddPath);
  EXPECT_EQ(records[0].width, 1920);
  EXPECT_EQ(records[0].height, 1080);
  EXPECT_EQ(records[0].orientation, 6);
  EXPECT_EQ(records[0].bit_rate, 7);
  EXPECT_EQ(records[1].database, 1);
  EXPECT_EQ(records[1].height, 0);
}

TEST_F(IndexRecordsTest, CountsRecordsByKind) {
  MediaRecord media;
  media.path = "/v/a";
  media.database = 0;
  ASSERT_TRUE(database_->SetMedia(media));
  media.database = 1;
  ASSERT_TRUE(database_->SetMedia(media));
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
