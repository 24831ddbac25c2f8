#include "thumbs/directories.h"

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
using DirectoriesTest = testing::CoreTest;
using CheckCreateDirTest = testing::CoreTest;
using RemoveFilesTest = testing::CoreTest;
using DiskSpaceTest = testing::CoreTest;

TEST_F(DirectoriesTest, RecycleBinsSnapshotsMetadataAndBundlesAreRefused) {
  for (const char* name : {".", "..", "._", "._x", "#recycle", "#snapshot", "@eaDir", "@tmp",
                           "Holiday.app", "a.b.app"}) {
    EXPECT_FALSE(IsDirNameAccepted(name)) << name;
  }
}

TEST_F(DirectoriesTest, EveryOtherDirectoryIsAccepted) {
  for (const char* name :
       {"a",        "_x",         ".x",       ".a_",         "...",         "#recycle2",
        "#Recycle", "#snapshots", "eaDir",    "Holiday.APP", "Holiday.App", "Holiday.apps",
        "app",      "a.app.b",    "sp ace",   "new\nline",   "%s",          "[*",
        "-x",       "@x",         "\xff\xfe", "\"quoted\""}) {
    EXPECT_TRUE(IsDirNameAccepted(name)) << name;
  }
}

TEST_F(DirectoriesTest, ThePlatformDecidesWhichNamesAreHidden) {
  fake().hidden_dirs = {"private"};
  EXPECT_FALSE(IsDirNameAccepted("private"));
  EXPECT_TRUE(IsDirNameAccepted("@eaDir"));
  EXPECT_EQ(fake().calls, (Texts{"KELDOEAIsHiddenDir(private)", "KELDOEAIsHiddenDir(@eaDir)"}));
}

TEST_F(DirectoriesTest, ThePlatformIsNotAskedAboutNamesThatWeRefuse) {
  for (const char* name : {".", "..", "._x", "#recycle", "#snapshot"}) {
    EXPECT_FALSE(IsDirNameAccepted(name));
  }
  EXPECT_EQ(fake().calls, Texts{});
}

TEST_F(DirectoriesTest, LocalFileSystemsAreAccepted) {
  EXPECT_TRUE(IsFileSystemAccepted("/v"));
  EXPECT_FALSE(IsFileSystemRejected("/v"));
  EXPECT_EQ(fake().CallsOf({"KELDOGetFSType"}),
            (Texts{"KELDOGetFSType(/v, 0)", "KELDOGetFSType(/v, 0)"}));
  ExpectNoLog();
}

TEST_F(DirectoriesTest, SharesImagesAndTheUnsuitableTypeAreRejected) {
  fake().fs_types = {
      {"/net", testing::kRemoteFs}, {"/iso", testing::kImageFs}, {"/bad", testing::kUnsuitableFs}};
  for (const char* path : {"/net", "/iso", "/bad"}) {
    EXPECT_TRUE(IsFileSystemRejected(path)) << path;
    EXPECT_FALSE(IsFileSystemAccepted(path)) << path;
  }
  ExpectNoLog();
}

TEST_F(DirectoriesTest, NeighboursOfTheUnsuitableTypeAreAccepted) {
  fake().fs_types = {{"/11", 11}, {"/13", 13}, {"/0", 0}};
  for (const char* path : {"/11", "/13", "/0"})
    EXPECT_TRUE(IsFileSystemAccepted(path)) << path;
}

TEST_F(DirectoriesTest, OnlyTheAnswerOneCounts) {
  fake().fs_types = {{"/v", 7}};
  fake().remote_fs_answers = {{7, 2}};
  fake().image_fs_answers = {{7, -1}};
  EXPECT_TRUE(IsFileSystemAccepted("/v"));
}

TEST_F(DirectoriesTest, AnUnreadableFileSystemTypeIsLoggedAndAccepted) {
  fake().FailCall("KELDOGetFSType", 1, EACCES);
  EXPECT_TRUE(IsFileSystemAccepted("/v/a%s"));
  ExpectOneLog(LOG_DEBUG, "index:66 failed to statfs /v/a%s, reason=[(13)Permission denied]");
  EXPECT_EQ(fake().calls, (Texts{"KELDOGetFSType(/v/a%s, 0)"}));
}

TEST_F(DirectoriesTest, AnUnreadableFileSystemTypeIsNotRejected) {
  fake().FailCall("KELDOGetFSType", 1, ENOENT);
  EXPECT_FALSE(IsFileSystemRejected("/v"));
  ExpectOneLog(LOG_DEBUG, "index:66 failed to statfs /v, reason=[(2)No such file or directory]");
}

TEST_F(DirectoriesTest, TheRemoteTestLetsImagesPass) {
  fake().fs_types = {
      {"/net", testing::kRemoteFs}, {"/iso", testing::kImageFs}, {"/bad", testing::kUnsuitableFs}};
  EXPECT_TRUE(IsRemoteFileSystem("/net"));
  EXPECT_TRUE(IsRemoteFileSystem("/bad"));
  EXPECT_FALSE(IsRemoteFileSystem("/iso"));
  EXPECT_FALSE(IsRemoteFileSystem("/v"));
  ExpectNoLog();
}

TEST_F(DirectoriesTest, TheRemoteTestLogsUnderItsOwnLine) {
  fake().FailCall("KELDOGetFSType", 1, EIO);
  EXPECT_FALSE(IsRemoteFileSystem("/v"));
  ExpectOneLog(LOG_DEBUG, "index:56 failed to statfs /v, reason=[(5)Input/output error]");
}

TEST_F(DirectoriesTest, ExtensionsAreComparedWithoutRegardToCase) {
  for (const char* path : {"photo.X3F", "/v/photo.x3f", "a.jpg.x3F"}) {
    EXPECT_TRUE(IsX3f(path)) << path;
    EXPECT_FALSE(IsHeic(path)) << path;
  }
  for (const char* path : {"IMG.Heic", "/v/IMG.heic", "IMG.HEIC"}) {
    EXPECT_TRUE(IsHeic(path)) << path;
    EXPECT_FALSE(IsX3f(path)) << path;
  }
  for (const char* path :
       {"", "x3f", "heic", "a.x3", "a.x3ff", "a.heif", "/v.heic/a", "a.heic.jpg"}) {
    EXPECT_FALSE(IsX3f(path)) << path;
    EXPECT_FALSE(IsHeic(path)) << path;
  }
}

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

TEST_F(CheckCreateDirTest, AnyExistingEntryCountsAsADirectory) {
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

TEST_F(RemoveFilesTest, AFailureDoesNotStopTheRemovalOfOthers) {
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
