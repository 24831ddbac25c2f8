#include "plugind/index_store.h"

#include <gtest/gtest.h>
#include <syslog.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "fakes/syslog_capture.h"
#include "index/sqlite.h"
#include "support/temp_dir.h"

namespace keldo::plugind {
namespace {

using index::IndexDatabase;
using testing::CapturedSyslog;

class IndexStoreTest : public ::testing::Test {
 protected:
  void SetUp() override { testing::ClearSyslog(); }

  std::unique_ptr<IndexDatabase> Database() {
    IndexDatabase::OpenResult opened = IndexDatabase::OpenOrCreate(path_);
    if (!opened.database) throw std::runtime_error(opened.problem);
    return std::move(opened.database);
  }

  testing::TempDir dir_;
  std::string path_ = dir_.path() + "/index.db";
};

TEST_F(IndexStoreTest, EverySpellingOfAPathIsTheSameFile) {
  DatabaseStore store(path_);
  ASSERT_TRUE(Database()->SetVersion("/v/a.jpg", 4));
  EXPECT_EQ(store.Version("/v//x/../a.jpg/"), 4);
  ASSERT_TRUE(store.AddFinished("/v/./b.jpg"));
  std::optional<std::int64_t> time;
  ASSERT_TRUE(Database()->FindFinished("/v/b.jpg", time));
  EXPECT_TRUE(time);
}

TEST_F(IndexStoreTest, PhotosHaveTheSizeThatWasReported) {
  DatabaseStore store(path_);
  ASSERT_TRUE(Database()->SetResolution({"/v/a.jpg", 60, 40}, {"/v/t.jpg", 6, 4}));
  const auto found = store.FindMedia("/v/a.jpg", 0);
  ASSERT_TRUE(found);
  EXPECT_EQ(found->width, 60);
  EXPECT_EQ(found->height, 40);
  EXPECT_FALSE(store.FindMedia("/v/a.jpg", 1)) << "it is not a video";
  EXPECT_FALSE(store.FindMedia("/v/t.jpg", 0));
}

TEST_F(IndexStoreTest, ARecordTakesPrecedenceOverAReportedSize) {
  DatabaseStore store(path_);
  ASSERT_TRUE(Database()->SetResolution({"/v/a.jpg", 60, 40}, {"/v/t.jpg", 6, 4}));
  ASSERT_TRUE(Database()->SetMedia({.path = "/v/a.jpg", .orientation = 8}));
  ASSERT_TRUE(store.FindMedia("/v/a.jpg", 0));
  EXPECT_EQ(store.FindMedia("/v/a.jpg", 0)->orientation, 8);
  EXPECT_EQ(store.FindMedia("/v/a.jpg", 0)->width, 0);
}

TEST_F(IndexStoreTest, ReopensAReplacedDatabase) {
  DatabaseStore store(path_);
  ASSERT_TRUE(Database()->SetVersion("/v/a.jpg", 4));
  EXPECT_EQ(store.Version("/v/a.jpg"), 4);
  for (const char* end : {"", "-wal", "-shm"})
    std::filesystem::remove(path_ + end);
  EXPECT_EQ(store.Version("/v/a.jpg"), 0);
  ASSERT_TRUE(store.AddFinished("/v/a.jpg"));
  EXPECT_TRUE(std::filesystem::exists(path_));
  EXPECT_TRUE(CapturedSyslog().empty());
}

TEST_F(IndexStoreTest, WithoutADatabaseAnswersDefaultsAndLogsOnce) {
  const std::string path = dir_.path() + "/none/none/index.db";
  DatabaseStore store(path);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(store.Version("/v/a.jpg"), 0);
    EXPECT_TRUE(store.IsConversionOn(THUMB_TYPE_PHOTO));
    EXPECT_TRUE(store.IsConversionOn(THUMB_TYPE_VIDEO));
    EXPECT_FALSE(store.FindMedia("/v/a.jpg", 1));
    EXPECT_FALSE(store.AddFinished("/v/a.jpg"));
  }
  ASSERT_EQ(CapturedSyslog().size(), 1U);
  EXPECT_EQ(CapturedSyslog()[0], (testing::LogLine{LOG_ERR, "cannot open the index: " + path +
                                                                ": No such file or directory"}));
}

TEST_F(IndexStoreTest, LeavesAFileThatIsNotADatabaseAlone) {
  const std::string content(8192, 'x');
  std::ofstream(path_) << content;
  DatabaseStore store(path_);
  EXPECT_EQ(store.Version("/v/a.jpg"), 0);
  EXPECT_FALSE(store.AddFinished("/v/a.jpg"));
  EXPECT_EQ(std::filesystem::file_size(path_), content.size());
  ASSERT_EQ(CapturedSyslog().size(), 1U);
  EXPECT_EQ(CapturedSyslog()[0].text,
            "cannot open the index: " + path_ + ": file is not a database");
}

TEST_F(IndexStoreTest, LogsABusyIndexOnceWhileItLasts) {
  DatabaseStore store(path_);
  sqlite3* raw = nullptr;
  ASSERT_EQ(sqlite3_open(path_.c_str(), &raw), SQLITE_OK);
  const index::UniqueSqlite other(raw);
  ASSERT_EQ(sqlite3_exec(raw, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
  EXPECT_FALSE(store.AddFinished("/v/a.jpg"));
  EXPECT_EQ(store.Version("/v/a.jpg"), 0) << "reading goes on";
  EXPECT_FALSE(store.AddFinished("/v/a.jpg"));
  ASSERT_EQ(CapturedSyslog().size(), 1U);
  EXPECT_EQ(CapturedSyslog()[0].text, "cannot write to the index: database is locked");
  ASSERT_EQ(sqlite3_exec(raw, "ROLLBACK", nullptr, nullptr, nullptr), SQLITE_OK);
  EXPECT_TRUE(store.AddFinished("/v/a.jpg"));
}

}  // namespace
}  // namespace keldo::plugind
