#include "thumbs/dir_helpers.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <vector>

#include "fakes/core_test.h"

namespace keldo {
namespace {

using testing::fake;
using Texts = std::vector<std::string>;
using CheckCreateDirTest = testing::CoreTest;
using RemoveFilesTest = testing::CoreTest;
using DiskSpaceTest = testing::CoreTest;

TEST_F(CheckCreateDirTest, AnExistingDirectoryIsNotMadeAgain) {
  fake().FailAlways("mkdir", EACCES);
  EXPECT_TRUE(checkCreateDir(Dir()));
  ExpectNoLog();
}

TEST_F(CheckCreateDirTest, AMissingDirectoryIsMadeForEverybody) {
  const std::string path = In("new %s\n[1]\xff");
  EXPECT_TRUE(checkCreateDir(path));
  EXPECT_EQ(Mode(path), 0777u);
  EXPECT_TRUE(checkCreateDir(path));
  ExpectNoLog();
}

TEST_F(CheckCreateDirTest, AMissingParentIsASilentFailure) {
  EXPECT_FALSE(checkCreateDir(In("none/new")));
  EXPECT_FALSE(Exists(In("none")));
  ExpectNoLog();
}

TEST_F(CheckCreateDirTest, WhateverElseExistsCountsAsThere) {
  EXPECT_TRUE(checkCreateDir(WriteFile(In("file"), "kept")));
  EXPECT_EQ(ReadFile(In("file")), "kept");
  ASSERT_EQ(symlink("nowhere", In("link").c_str()), 0);
  EXPECT_TRUE(checkCreateDir(In("link")));
  ExpectNoLog();
}

TEST_F(CheckCreateDirTest, ALinkToADirectoryIsADirectory) {
  ASSERT_EQ(symlink(Dir().c_str(), In("link").c_str()), 0);
  fake().FailAlways("mkdir", EACCES);
  EXPECT_TRUE(checkCreateDir(In("link")));
}

TEST_F(CheckCreateDirTest, AnyOtherFailureIsLogged) {
  const std::string path = WriteFile(In("file"), "") + "/new";
  EXPECT_FALSE(checkCreateDir(path));
  ExpectOneLog(LOG_ERR, "keldothumb:507 keldothumb: checkCreateDir(507) - mkdir(" + path +
                            ", 0777 ), errno: 20\n");
}

TEST_F(CheckCreateDirTest, TheErrorOfMkdirIsLogged) {
  fake().FailCall("mkdir", 1, ENOSPC);
  EXPECT_FALSE(checkCreateDir(In("new")));
  ExpectOneLog(LOG_ERR, "keldothumb:507 keldothumb: checkCreateDir(507) - mkdir(" + In("new") +
                            ", 0777 ), errno: 28\n");
}

TEST_F(RemoveFilesTest, RemovesWhatMatchesAndNothingElse) {
  const std::string directory = MakeDir(In("a[1]*.jpg"));
  const std::string kept = WriteFile(directory + "/kept.jpg", "");
  const std::string first = WriteFile(directory + "/a.fail", "");
  const std::string second = WriteFile(directory + "/new\nline %s.fail", "");
  EXPECT_TRUE(RemoveFilesByPattern(directory, "*.fail"));
  EXPECT_FALSE(Exists(first));
  EXPECT_FALSE(Exists(second));
  EXPECT_TRUE(Exists(kept));
  EXPECT_EQ(fake().calls, (Texts{"GlobFiles(" + directory + ", *.fail)"}));
}

TEST_F(RemoveFilesTest, NothingToRemoveIsSuccess) {
  EXPECT_TRUE(RemoveFilesByPattern(Dir(), "*.fail"));
  EXPECT_TRUE(RemoveFilesByPattern(In("none"), "*.fail"));
  ExpectNoLog();
}

TEST_F(RemoveFilesTest, AllAreTriedWhenOneFails) {
  WriteFile(In("a.fail"), "");
  MakeDir(In("b.fail"));
  WriteFile(In("c.fail"), "");
  EXPECT_FALSE(RemoveFilesByPattern(Dir(), "*.fail"));
  EXPECT_FALSE(Exists(In("a.fail")));
  EXPECT_TRUE(Exists(In("b.fail")));
  EXPECT_FALSE(Exists(In("c.fail")));
  ExpectNoLog();
}

TEST_F(RemoveFilesTest, ALaterSuccessDoesNotHideAFailure) {
  WriteFile(In("a.fail"), "");
  WriteFile(In("b.fail"), "");
  fake().FailCall("unlink", 1, EPERM);
  EXPECT_FALSE(RemoveFilesByPattern(Dir(), "*.fail"));
  EXPECT_TRUE(Exists(In("a.fail")));
  EXPECT_FALSE(Exists(In("b.fail")));
}

TEST_F(DiskSpaceTest, OneGibibyteIsEnough) {
  fake().free_bytes = {{"/v", 1073741824}};
  EXPECT_TRUE(HasDiskSpace("/v"));
  EXPECT_EQ(fake().calls, (Texts{"KLIBGetFsAvailSize(/v)"}));
}

TEST_F(DiskSpaceTest, OneByteLessIsNot) {
  fake().free_bytes = {{"/v", 1073741823}, {"/full", 0}};
  EXPECT_FALSE(HasDiskSpace("/v"));
  EXPECT_FALSE(HasDiskSpace("/full"));
}

TEST_F(DiskSpaceTest, SizesAreNotCutToThirtyTwoBits) {
  fake().free_bytes = {{"/4G", std::uint64_t{1} << 32}, {"/big", ~std::uint64_t{0}}};
  EXPECT_TRUE(HasDiskSpace("/4G"));
  EXPECT_TRUE(HasDiskSpace("/big"));
}

}  // namespace
}  // namespace keldo
