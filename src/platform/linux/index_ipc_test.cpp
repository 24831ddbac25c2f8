#include "platform/index_ipc.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include "index/index_database.h"
#include "support/temp_dir.h"

namespace keldo::index {
namespace {

namespace ipc = keldoindexutils::ipc;

// Acts as a user who may only read the database. Root becomes somebody else; other users, who
// cannot, drop their own right to write.
class OrdinaryReader {
 public:
  explicit OrdinaryReader(const std::string& directory) : directory_(directory) {
    SetModes(0555, 0444);
    if (was_root_ && seteuid(65534) != 0) throw std::runtime_error("seteuid");
  }
  ~OrdinaryReader() {
    if (was_root_ && seteuid(0) != 0) std::abort();
    SetModes(0755, 0644);
  }
  OrdinaryReader(const OrdinaryReader&) = delete;
  OrdinaryReader& operator=(const OrdinaryReader&) = delete;

 private:
  void SetModes(unsigned directory_mode, unsigned file_mode) {
    if (was_root_) return;
    namespace fs = std::filesystem;
    fs::permissions(directory_, fs::perms{0755});
    for (const auto& file : fs::directory_iterator(directory_)) {
      fs::permissions(file.path(), fs::perms{file_mode});
    }
    fs::permissions(directory_, fs::perms{directory_mode});
  }

  std::string directory_;
  bool was_root_ = geteuid() == 0;
};

class IndexIpcTest : public ::testing::Test {
 public:
  IndexIpcTest(const IndexIpcTest&) = delete;
  IndexIpcTest& operator=(const IndexIpcTest&) = delete;

 protected:
  IndexIpcTest() {
    std::filesystem::permissions(dir_.path(), std::filesystem::perms{0755});
    UseIndexAt(database_);
  }
  ~IndexIpcTest() override { UseIndexAt(database_ + ".none"); }

  std::unique_ptr<IndexDatabase> Create() {
    auto opened = IndexDatabase::OpenOrCreate(database_);
    EXPECT_EQ(opened.problem, "");
    return std::move(opened.database);
  }
  void SetMask(const std::string& directory, int mask, int type = THUMB_TYPE_PHOTO) {
    const auto database = Create();
    ASSERT_TRUE(database->SetMask(directory, type, mask)) << database->problem();
  }
  static int DirMask(const std::string& directory, _tag_THUMB_TYPE_ type = THUMB_TYPE_PHOTO) {
    int mask = -7;
    EXPECT_EQ(ipc::KELDOIDX_GetDirThumbSizeMap(directory.c_str(), type, &mask), 0);
    return mask;
  }
  static int FileMask(const std::string& path, _tag_THUMB_TYPE_ type = THUMB_TYPE_PHOTO) {
    int mask = -7;
    EXPECT_EQ(ipc::KELDOIDX_GetThumbSizeMap(path.c_str(), type, &mask), 0);
    return mask;
  }
  static keldoindexutils::MediaInfo Media(const std::string& path, int x, int y) {
    keldoindexutils::MediaInfo info;
    info.path(path);
    info.resolution_x(x);
    info.resolution_y(y);
    return info;
  }
  // One row of the first query's result, columns joined by '|'.
  std::string Query(const std::string& sql) {
    sqlite3* raw = nullptr;
    EXPECT_EQ(sqlite3_open_v2(database_.c_str(), &raw, SQLITE_OPEN_READWRITE, nullptr), SQLITE_OK);
    const UniqueSqlite database(raw);
    std::string text;
    const auto add_row = [](void* to, int count, char** values, char** /*names*/) {
      auto& row = *static_cast<std::string*>(to);
      for (int i = 0; i < count; ++i)
        row.append(row.empty() ? "" : "|").append(values[i]);
      return 0;
    };
    EXPECT_EQ(sqlite3_exec(raw, sql.c_str(), add_row, &text, nullptr), SQLITE_OK) << sql;
    return text;
  }

  testing::TempDir dir_;
  std::string state_ = dir_.path() + "/state";
  std::string database_ = state_ + "/index.db";
};

TEST_F(IndexIpcTest, WithoutADatabaseTheDefaultsHoldAndNoneIsMade) {
  EXPECT_EQ(DirMask("/v/photo"), 63);
  EXPECT_EQ(FileMask("/v/photo/a.jpg"), 63);
  EXPECT_EQ(ipc::KELDOIDX_IndexConvertAdd(Media("/v/a.jpg", 1, 2), Media("/v/t.jpg", 1, 1), {}), 0);
  EXPECT_FALSE(std::filesystem::exists(state_));
}

TEST_F(IndexIpcTest, ADatabaseIsLookedForOnce) {
  EXPECT_EQ(DirMask("/v"), 63);
  SetMask("/v", 1);
  EXPECT_EQ(DirMask("/v"), 63);
  UseIndexAt(database_);
  EXPECT_EQ(DirMask("/v"), 1);
}

TEST_F(IndexIpcTest, TheNearestMaskAboveHolds) {
  SetMask("/v/photo", 3);
  SetMask("/v/photo/2024/raw", 0);
  EXPECT_EQ(DirMask("/v/photo"), 3);
  EXPECT_EQ(DirMask("/v/photo/2024"), 3);
  EXPECT_EQ(DirMask("/v/photo/2024/raw"), 0);
  EXPECT_EQ(DirMask("/v/photo/2024/raw/x/y"), 0);
  EXPECT_EQ(DirMask("/v"), 63);
  EXPECT_EQ(DirMask("/v/photo2"), 63);
  EXPECT_EQ(DirMask("/"), 63);
}

TEST_F(IndexIpcTest, AMaskOfTheRootHoldsForAll) {
  SetMask("/", 5);
  EXPECT_EQ(DirMask("/"), 5);
  EXPECT_EQ(DirMask("/v/photo"), 5);
  EXPECT_EQ(FileMask("/a.jpg"), 5);
}

TEST_F(IndexIpcTest, AFileHasItsDirectorysMask) {
  SetMask("/v/photo", 3);
  SetMask("/v/photo/a.jpg", 1);  // a directory of this name
  EXPECT_EQ(FileMask("/v/photo/a.jpg"), 3);
  EXPECT_EQ(FileMask("/v/photo/a.jpg/b.jpg"), 1);
}

TEST_F(IndexIpcTest, PhotosAndVideosHaveTheirOwnMasks) {
  SetMask("/v", 1, THUMB_TYPE_PHOTO);
  SetMask("/v", 2, THUMB_TYPE_VIDEO);
  EXPECT_EQ(DirMask("/v"), 1);
  EXPECT_EQ(DirMask("/v", THUMB_TYPE_VIDEO), 2);
  EXPECT_EQ(FileMask("/v/a.mp4", THUMB_TYPE_VIDEO), 2);
}

TEST_F(IndexIpcTest, PathsAreBytesInAnySpelling) {
  SetMask("/v/\xFF[1]% \n", 3);
  EXPECT_EQ(DirMask("//v/./\xFF[1]% \n//"), 3);
  EXPECT_EQ(DirMask("/v/\xFE[1]% \n"), 63);

  const auto before = std::filesystem::current_path();
  std::filesystem::current_path(dir_.path());
  SetMask(dir_.path() + "/photo", 9);
  EXPECT_EQ(DirMask("photo"), 9);
  EXPECT_EQ(FileMask("./photo/a.jpg"), 9);
  EXPECT_EQ(FileMask("a.jpg"), 63);
  std::filesystem::current_path(before);
}

TEST_F(IndexIpcTest, SeesOtherProcessesChangesAtOnce) {
  SetMask("/v", 1);
  EXPECT_EQ(DirMask("/v"), 1);
  SetMask("/v", 2);
  EXPECT_EQ(DirMask("/v"), 2);
  ASSERT_TRUE(Create()->RemoveMask("/v", THUMB_TYPE_PHOTO));
  EXPECT_EQ(DirMask("/v"), 63);
}

TEST_F(IndexIpcTest, AnInvalidQueryLeavesTheMaskUnchanged) {
  int mask = -7;
  EXPECT_LT(ipc::KELDOIDX_GetDirThumbSizeMap(nullptr, THUMB_TYPE_PHOTO, &mask), 0);
  EXPECT_LT(ipc::KELDOIDX_GetThumbSizeMap(nullptr, THUMB_TYPE_PHOTO, &mask), 0);
  EXPECT_LT(ipc::KELDOIDX_GetDirThumbSizeMap("/v", static_cast<_tag_THUMB_TYPE_>(3), &mask), 0);
  EXPECT_LT(ipc::KELDOIDX_GetDirThumbSizeMap("/v", THUMB_TYPE_PHOTO, nullptr), 0);
  EXPECT_EQ(mask, -7);
}

TEST_F(IndexIpcTest, KeepsTheLastResolutionOfEachPhoto) {
  Create();
  EXPECT_EQ(ipc::KELDOIDX_IndexConvertAdd(Media("/v//a.jpg", 1, 2), Media("/v/t", 3, 4), {}), 0);
  EXPECT_EQ(ipc::KELDOIDX_IndexConvertAdd(Media("/v/a.jpg", 4000, 3000),
                                          Media("/v/@eaDir/a.jpg/t.jpg", 1280, 960), {}),
            0);
  EXPECT_EQ(Query("SELECT CAST(path AS TEXT), width, height, CAST(thumb_path AS TEXT),"
                  " thumb_width, thumb_height FROM resolutions"),
            "/v/a.jpg|4000|3000|/v/@eaDir/a.jpg/t.jpg|1280|960");
}

TEST_F(IndexIpcTest, AnOrdinaryUserReadsTheMasksAndWritesNothing) {
  SetMask("/v", 3);
  {
    const OrdinaryReader reader(state_);
    EXPECT_EQ(DirMask("/v/photo"), 3);
    EXPECT_EQ(ipc::KELDOIDX_IndexConvertAdd(Media("/v/a", 1, 2), Media("/v/t", 3, 4), {}), 0);
    EXPECT_EQ(DirMask("/v/photo"), 3);
    UseIndexAt(database_ + ".none");
  }
  EXPECT_EQ(Query("SELECT count(*) FROM resolutions"), "0");
}

TEST_F(IndexIpcTest, AnOrdinaryUserReadsWhileAnotherWrites) {
  const auto writer = Create();
  ASSERT_TRUE(writer->SetMask("/v", THUMB_TYPE_PHOTO, 3));
  const OrdinaryReader reader(state_);
  EXPECT_EQ(DirMask("/v"), 3);
  ASSERT_TRUE(writer->SetMask("/v", THUMB_TYPE_PHOTO, 4));
  EXPECT_EQ(DirMask("/v"), 4);
  UseIndexAt(database_ + ".none");
}

TEST_F(IndexIpcTest, AUserWhoCannotReadItGetsTheDefaults) {
  SetMask("/v", 3);
  // Without the files beside it an unwritable database cannot be read.
  std::filesystem::remove(database_ + "-wal");
  std::filesystem::remove(database_ + "-shm");
  const OrdinaryReader reader(state_);
  EXPECT_EQ(DirMask("/v"), 63);
  EXPECT_EQ(DirMask("/v"), 63);
}

TEST_F(IndexIpcTest, ADamagedDatabaseMeansTheDefaults) {
  std::filesystem::create_directory(state_);
  for (const std::string& content : {std::string(), std::string("x"), std::string(10000, 'x'),
                                     std::string("SQLite format 3\0", 16) + "xxxx"}) {
    std::ofstream(database_, std::ios::binary) << content;
    UseIndexAt(database_);
    EXPECT_EQ(DirMask("/v"), 63);
    EXPECT_EQ(DirMask("/v"), 63);
    EXPECT_EQ(ipc::KELDOIDX_IndexConvertAdd(Media("/v/a", 1, 2), Media("/v/t", 3, 4), {}), 0);
    // The file stays as it was.
    EXPECT_EQ(std::filesystem::file_size(database_), content.size());
  }
}

TEST_F(IndexIpcTest, ADatabaseThatIsDamagedInTheMiddleMeansTheDefaults) {
  const auto database = Create();
  for (int i = 0; i < 500; ++i) {
    ASSERT_TRUE(database->SetMask("/v/" + std::string(200, 'x') + std::to_string(i), 1, 3));
  }
  Query("PRAGMA wal_checkpoint(TRUNCATE)");
  {
    std::fstream file(database_, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(4096);
    file << std::string(std::filesystem::file_size(database_) - 4096, '\x55');
  }
  UseIndexAt(database_);
  EXPECT_EQ(DirMask("/v/" + std::string(200, 'x') + "7"), 63);
  EXPECT_EQ(DirMask("/v"), 63);
}

TEST_F(IndexIpcTest, ADirectoryInPlaceOfTheDatabaseMeansTheDefaults) {
  std::filesystem::create_directories(database_);
  EXPECT_EQ(DirMask("/v"), 63);
}

TEST_F(IndexIpcTest, ADatabaseOfALaterVersionMeansTheDefaults) {
  SetMask("/v", 3);
  Query("PRAGMA user_version=2");
  EXPECT_EQ(DirMask("/v"), 63);
}

TEST_F(IndexIpcTest, OnlyVideosNeedConversion) {
  EXPECT_EQ(ipc::KELDOIDX_IsVideoNeedConvert("/v/a.MP4"), 1);
  EXPECT_EQ(ipc::KELDOIDX_IsVideoNeedConvert("/v/a.jpg"), 0);
}

}  // namespace
}  // namespace keldo::index
