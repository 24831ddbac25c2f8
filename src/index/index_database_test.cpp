#include "index/index_database.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "support/temp_dir.h"

namespace keldo::index {
namespace {

constexpr int kPhoto = 1;

class IndexDatabaseTest : public ::testing::Test {
 protected:
  std::unique_ptr<IndexDatabase> Create() const {
    auto opened = IndexDatabase::OpenOrCreate(path_);
    EXPECT_EQ(opened.problem, "");
    return std::move(opened.database);
  }
  static mode_t ModeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
  }

  testing::TempDir dir_;
  std::string path_ = dir_.path() + "/state/index.db";
};

TEST_F(IndexDatabaseTest, OpeningCreatesNothing) {
  const auto opened = IndexDatabase::Open(path_);
  EXPECT_EQ(opened.database, nullptr);
  EXPECT_TRUE(opened.missing);
  EXPECT_NE(opened.problem, "");
  EXPECT_FALSE(std::filesystem::exists(dir_.path() + "/state"));
}

TEST_F(IndexDatabaseTest, CreatesFilesThatEverybodyCanRead) {
  for (const mode_t mask : {mode_t{0}, mode_t{0077}}) {
    std::filesystem::remove_all(dir_.path() + "/state");
    const mode_t before = umask(mask);
    const auto database = Create();
    ASSERT_TRUE(database->SetMask("/v", kPhoto, 1));
    umask(before);
    EXPECT_EQ(ModeOf(dir_.path() + "/state"), 0755U);
    for (const char* suffix : {"", "-wal", "-shm"})
      EXPECT_EQ(ModeOf(path_ + suffix), 0644U);
  }
}

TEST_F(IndexDatabaseTest, CreatingAgainKeepsTheRecords) {
  ASSERT_TRUE(Create()->SetMask("/v", kPhoto, 3));
  std::optional<MaskEntry> entry;
  ASSERT_TRUE(Create()->FindMask("/v", kPhoto, entry));
  ASSERT_TRUE(entry);
  EXPECT_EQ(entry->mask, 3);
  EXPECT_EQ(entry->directory, "/v");
}

TEST_F(IndexDatabaseTest, AMaskNamesTheDirectoryItWasSetOn) {
  const auto database = Create();
  ASSERT_TRUE(database->SetMask("/v", kPhoto, 3));
  std::optional<MaskEntry> entry;
  ASSERT_TRUE(database->FindMask("/v/photo/2024", kPhoto, entry));
  ASSERT_TRUE(entry);
  EXPECT_EQ(entry->directory, "/v");
  ASSERT_TRUE(database->FindMask("/w", kPhoto, entry));
  EXPECT_FALSE(entry);
}

TEST_F(IndexDatabaseTest, RemovingAMissingMaskSucceeds) {
  const auto database = Create();
  EXPECT_TRUE(database->RemoveMask("/v", kPhoto));
  ASSERT_TRUE(database->SetMask("/v", kPhoto, 3));
  ASSERT_TRUE(database->SetMask("/v", 2, 4));
  EXPECT_TRUE(database->RemoveMask("/v", kPhoto));
  std::optional<MaskEntry> entry;
  ASSERT_TRUE(database->FindMask("/v", kPhoto, entry));
  EXPECT_FALSE(entry);
  ASSERT_TRUE(database->FindMask("/v", 2, entry));
  EXPECT_TRUE(entry);
}

// Runs `body` in a child process of its own, which ends with status 0 when `body` returns true.
template <typename Body>
pid_t InAChild(const Body& body) {
  const pid_t child = fork();
  if (child == 0) _exit(body() ? 0 : 1);
  return child;
}

TEST_F(IndexDatabaseTest, ManyProcessesMayCreateItAtOnce) {
  constexpr int kRounds = 20;
  constexpr int kCreators = 4;
  for (int round = 0; round < kRounds; ++round) {
    std::filesystem::remove_all(dir_.path() + "/state");
    std::vector<pid_t> creators;
    for (int i = 0; i < kCreators; ++i) {
      creators.push_back(InAChild([this, i] {
        const auto database = Create();
        return database && database->SetMask("/v/" + std::to_string(i), kPhoto, i);
      }));
    }
    for (const pid_t creator : creators) {
      int status = -1;
      ASSERT_EQ(waitpid(creator, &status, 0), creator);
      EXPECT_EQ(status, 0);
    }
    const auto database = Create();
    for (int i = 0; i < kCreators; ++i) {
      std::optional<MaskEntry> entry;
      ASSERT_TRUE(database->FindMask("/v/" + std::to_string(i), kPhoto, entry));
      ASSERT_TRUE(entry);
      EXPECT_EQ(entry->mask, i);
    }
  }
}

TEST_F(IndexDatabaseTest, AWriterWaitsForAnotherForAWhile) {
  const auto database = Create();
  sqlite3* raw = nullptr;
  ASSERT_EQ(sqlite3_open_v2(path_.c_str(), &raw, SQLITE_OPEN_READWRITE, nullptr), SQLITE_OK);
  const UniqueSqlite other(raw);
  ASSERT_EQ(sqlite3_exec(raw, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);

  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(database->SetMask("/v", kPhoto, 3));
  const auto waited = std::chrono::steady_clock::now() - start;
  EXPECT_TRUE(database->was_busy());
  EXPECT_NE(database->problem(), "");
  EXPECT_GE(waited, std::chrono::milliseconds(1500));
  EXPECT_LE(waited, std::chrono::seconds(60));
  // Readers never wait.
  std::optional<MaskEntry> entry;
  EXPECT_TRUE(database->FindMask("/v", kPhoto, entry));

  ASSERT_EQ(sqlite3_exec(raw, "COMMIT", nullptr, nullptr, nullptr), SQLITE_OK);
  EXPECT_TRUE(database->SetMask("/v", kPhoto, 3));
}

// Otherwise every later run would read it at its start and write it back at its end.
TEST_F(IndexDatabaseTest, TheLogIsEmptyOnceTheDatabaseIsClosed) {
  Create().reset();
  EXPECT_EQ(std::filesystem::file_size(path_ + "-wal"), 0U);
  ASSERT_TRUE(IndexDatabase::Open(path_).database->SetMask("/v", kPhoto, 3));
  EXPECT_EQ(std::filesystem::file_size(path_ + "-wal"), 0U);
  std::optional<MaskEntry> entry;
  ASSERT_TRUE(IndexDatabase::Open(path_).database->FindMask("/v", kPhoto, entry));
  EXPECT_TRUE(entry);
}

TEST_F(IndexDatabaseTest, RefusesAnotherVersion) {
  Create();
  sqlite3* raw = nullptr;
  ASSERT_EQ(sqlite3_open_v2(path_.c_str(), &raw, SQLITE_OPEN_READWRITE, nullptr), SQLITE_OK);
  const UniqueSqlite other(raw);
  ASSERT_EQ(sqlite3_exec(raw, "PRAGMA user_version=2", nullptr, nullptr, nullptr), SQLITE_OK);
  for (const auto& open : {IndexDatabase::Open, IndexDatabase::OpenOrCreate}) {
    const auto opened = open(path_);
    EXPECT_EQ(opened.database, nullptr);
    EXPECT_FALSE(opened.missing);
    EXPECT_EQ(opened.problem, "the database has version 2, not 1");
  }
}

TEST_F(IndexDatabaseTest, RefusesAFileThatIsNotADatabase) {
  std::filesystem::create_directory(dir_.path() + "/state");
  std::ofstream(path_) << std::string(5000, 'x');
  EXPECT_EQ(IndexDatabase::Open(path_).problem, "file is not a database");
  EXPECT_EQ(IndexDatabase::OpenOrCreate(path_).problem, "file is not a database");
}

}  // namespace
}  // namespace keldo::index
