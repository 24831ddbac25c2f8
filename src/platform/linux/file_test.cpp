#include "platform/file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>

#include "support/temp_dir.h"

namespace {

namespace file = keldoindexutils::stat;
using keldo::testing::TempDir;

class FileTest : public ::testing::Test {
 protected:
  std::string Make(const std::string& name, const std::string& content) {
    std::ofstream(Path(name)) << content;
    return Path(name);
  }
  std::string Path(const std::string& name) { return dir_.path() + "/" + name; }

  TempDir dir_;
};

TEST_F(FileTest, StatFillsTheStandardFieldsAndClearsThePlatformsWords) {
  const std::string path = Make("a b%.jpg", "12345");
  const std::array<timespec, 2> times{
      {{.tv_sec = 11, .tv_nsec = 22}, {.tv_sec = 33, .tv_nsec = 44}}};
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times.data(), 0), 0);
  KLIBCFileRecord record{};
  record.platform_words = {7, 7};

  ASSERT_EQ(KLIBCFileStat(path.c_str(), 9, &record), 0);

  struct stat expected {};
  ASSERT_EQ(::stat(path.c_str(), &expected), 0);
  EXPECT_EQ(record.st.st_ino, expected.st_ino);
  EXPECT_EQ(record.st.st_mode, expected.st_mode);
  EXPECT_EQ(record.st.st_blocks, expected.st_blocks);
  EXPECT_EQ(record.st.st_size, 5);
  EXPECT_EQ(record.st.st_mtim.tv_sec, 33);
  EXPECT_EQ(record.st.st_mtim.tv_nsec, 44);
  EXPECT_EQ(record.platform_words, (std::array<long, 2>{0, 0}));
}

TEST_F(FileTest, StatFollowsSymbolicLinks) {
  std::filesystem::create_symlink(Make("photo", "123"), Path("link"));
  KLIBCFileRecord record{};
  ASSERT_EQ(KLIBCFileStat(Path("link").c_str(), 9, &record), 0);
  EXPECT_TRUE(S_ISREG(record.st.st_mode));
  EXPECT_EQ(record.st.st_size, 3);
}

TEST_F(FileTest, StatOfAMissingFileFailsWithErrnoAndLeavesTheRecord) {
  KLIBCFileRecord record{};
  record.st.st_size = 99;
  errno = 0;
  EXPECT_EQ(KLIBCFileStat(Path("none").c_str(), 9, &record), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(record.st.st_size, 99);
}

TEST_F(FileTest, StatRefusesOtherFlags) {
  KLIBCFileRecord record{};
  errno = 0;
  EXPECT_EQ(KLIBCFileStat(Make("a", "1").c_str(), 8, &record), -1);
  EXPECT_EQ(errno, EINVAL);
}

TEST_F(FileTest, UTimeSetsAccessAndModificationTime) {
  const std::string path = Make("a", "1");
  const std::array<timespec, 3> times{{{.tv_sec = 100, .tv_nsec = 1},
                                       {.tv_sec = 200, .tv_nsec = 2},
                                       {.tv_sec = 300, .tv_nsec = 3}}};

  ASSERT_EQ(KLIBCFileUTime(path.c_str(), 3, times), 0);

  struct stat status {};
  ASSERT_EQ(::stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_atim.tv_sec, 100);
  EXPECT_EQ(status.st_atim.tv_nsec, 1);
  EXPECT_EQ(status.st_mtim.tv_sec, 200);
  EXPECT_EQ(status.st_mtim.tv_nsec, 2);
}

TEST_F(FileTest, UTimeFailsWithErrno) {
  errno = 0;
  EXPECT_EQ(KLIBCFileUTime(Path("none").c_str(), 3, {}), -1);
  EXPECT_EQ(errno, ENOENT);
  errno = 0;
  EXPECT_EQ(KLIBCFileUTime(Make("a", "1").c_str(), 1, {}), -1);
  EXPECT_EQ(errno, EINVAL);
}

TEST_F(FileTest, AvailableSizeIsWhatAnOrdinaryUserMayWrite) {
  struct statvfs volume {};
  ASSERT_EQ(::statvfs("/proc", &volume), 0);
  ASSERT_EQ(volume.f_bavail, 0U);
  EXPECT_EQ(KLIBGetFsAvailSize("/proc"), 0U);

  ASSERT_EQ(::statvfs(dir_.path().c_str(), &volume), 0);
  const auto expected = static_cast<double>(volume.f_bavail) * static_cast<double>(volume.f_frsize);
  ASSERT_GT(expected, 0);
  // Others write to the volume at the same time.
  EXPECT_NEAR(static_cast<double>(KLIBGetFsAvailSize(dir_.path().c_str())), expected,
              expected / 20);
}

TEST_F(FileTest, AvailableSizeOfAnUnreachablePathIsZero) {
  EXPECT_EQ(KLIBGetFsAvailSize(Path("none").c_str()), 0U);
}

TEST_F(FileTest, AnyReachableEntryExists) {
  EXPECT_TRUE(file::DoesFileExist(Make("a\n\xFF", "")));
  EXPECT_TRUE(file::DoesFileExist(dir_.path()));
  EXPECT_TRUE(file::DoesFileExist("/dev/null"));
  EXPECT_FALSE(file::DoesFileExist(Path("none")));
  std::filesystem::create_symlink(Path("none"), Path("dangling"));
  EXPECT_FALSE(file::DoesFileExist(Path("dangling")));
}

TEST_F(FileTest, OnlyDirectoriesAreDirectories) {
  EXPECT_TRUE(file::DoesDirExist(dir_.path()));
  std::filesystem::create_directory_symlink(dir_.path(), Path("link"));
  EXPECT_TRUE(file::DoesDirExist(Path("link")));
  EXPECT_FALSE(file::DoesDirExist(Make("a", "1")));
  EXPECT_FALSE(file::DoesDirExist(Path("none")));
}

TEST_F(FileTest, AFileOfOneByteHasSize) {
  EXPECT_TRUE(file::DoesFileExistAndHasSize(Make("one", "1")));
  EXPECT_FALSE(file::DoesFileExistAndHasSize(Make("empty", "")));
  EXPECT_FALSE(file::DoesFileExistAndHasSize(Path("none")));
  EXPECT_FALSE(file::DoesFileExistAndHasSize(dir_.path()));
}

}  // namespace
