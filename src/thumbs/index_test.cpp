#include "thumbs/index.h"

#include <gtest/gtest.h>
#include <syslog.h>

#include <cerrno>
#include <string>
#include <vector>

#include "fakes/core_test.h"

namespace keldo {
namespace {

using testing::fake;
using Texts = std::vector<std::string>;
using IndexTest = testing::CoreTest;

TEST_F(IndexTest, WalksNoRecycleBinsSnapshotsMetadataOrBundles) {
  for (const char* name : {".", "..", "._", "._x", "#recycle", "#snapshot", "@eaDir", "@tmp",
                           "Holiday.app", "a.b.app"}) {
    EXPECT_FALSE(IsDirNameAccepted(name)) << name;
  }
}

TEST_F(IndexTest, WalksEveryOtherDirectory) {
  for (const char* name :
       {"a",        "_x",         ".x",       ".a_",         "...",         "#recycle2",
        "#Recycle", "#snapshots", "eaDir",    "Holiday.APP", "Holiday.App", "Holiday.apps",
        "app",      "a.app.b",    "sp ace",   "new\nline",   "%s",          "[*",
        "-x",       "@x",         "\xff\xfe", "\"quoted\""}) {
    EXPECT_TRUE(IsDirNameAccepted(name)) << name;
  }
}

TEST_F(IndexTest, ThePlatformDecidesWhichNamesAreHidden) {
  fake().hidden_dirs = {"private"};
  EXPECT_FALSE(IsDirNameAccepted("private"));
  EXPECT_TRUE(IsDirNameAccepted("@eaDir"));
  EXPECT_EQ(fake().calls, (Texts{"KELDOEAIsHiddenDir(private)", "KELDOEAIsHiddenDir(@eaDir)"}));
}

TEST_F(IndexTest, NamesThatAreRefusedByTextAreNotAskedAbout) {
  for (const char* name : {".", "..", "._x", "#recycle", "#snapshot"}) {
    EXPECT_FALSE(IsDirNameAccepted(name));
  }
  EXPECT_EQ(fake().calls, Texts{});
}

TEST_F(IndexTest, LocalFileSystemsAreAccepted) {
  EXPECT_TRUE(IsFileSystemAccepted("/v"));
  EXPECT_FALSE(IsFileSystemRejected("/v"));
  EXPECT_EQ(fake().CallsOf({"KELDOGetFSType"}),
            (Texts{"KELDOGetFSType(/v, 0)", "KELDOGetFSType(/v, 0)"}));
  ExpectNoLog();
}

TEST_F(IndexTest, SharesImagesAndTheUnsuitableTypeAreRejected) {
  fake().fs_types = {
      {"/net", testing::kRemoteFs}, {"/iso", testing::kImageFs}, {"/bad", testing::kUnsuitableFs}};
  for (const char* path : {"/net", "/iso", "/bad"}) {
    EXPECT_TRUE(IsFileSystemRejected(path)) << path;
    EXPECT_FALSE(IsFileSystemAccepted(path)) << path;
  }
  ExpectNoLog();
}

TEST_F(IndexTest, NeighboursOfTheUnsuitableTypeAreAccepted) {
  fake().fs_types = {{"/11", 11}, {"/13", 13}, {"/0", 0}};
  for (const char* path : {"/11", "/13", "/0"})
    EXPECT_TRUE(IsFileSystemAccepted(path)) << path;
}

TEST_F(IndexTest, OnlyTheAnswerOneMakesAClass) {
  fake().fs_types = {{"/v", 7}};
  fake().remote_fs_answers = {{7, 2}};
  fake().image_fs_answers = {{7, -1}};
  EXPECT_TRUE(IsFileSystemAccepted("/v"));
}

TEST_F(IndexTest, AnUnreadableFileSystemTypeIsLoggedAndAccepted) {
  fake().FailCall("KELDOGetFSType", 1, EACCES);
  EXPECT_TRUE(IsFileSystemAccepted("/v/a%s"));
  ExpectOneLog(LOG_DEBUG, "index:66 failed to statfs /v/a%s, reason=[(13)Permission denied]");
  EXPECT_EQ(fake().calls, (Texts{"KELDOGetFSType(/v/a%s, 0)"}));
}

TEST_F(IndexTest, AnUnreadableFileSystemTypeIsNotRejected) {
  fake().FailCall("KELDOGetFSType", 1, ENOENT);
  EXPECT_FALSE(IsFileSystemRejected("/v"));
  ExpectOneLog(LOG_DEBUG, "index:66 failed to statfs /v, reason=[(2)No such file or directory]");
}

TEST_F(IndexTest, TheRemoteTestLetsImagesPass) {
  fake().fs_types = {
      {"/net", testing::kRemoteFs}, {"/iso", testing::kImageFs}, {"/bad", testing::kUnsuitableFs}};
  EXPECT_TRUE(IsRemoteFileSystem("/net"));
  EXPECT_TRUE(IsRemoteFileSystem("/bad"));
  EXPECT_FALSE(IsRemoteFileSystem("/iso"));
  EXPECT_FALSE(IsRemoteFileSystem("/v"));
  ExpectNoLog();
}

TEST_F(IndexTest, TheRemoteTestLogsUnderItsOwnLine) {
  fake().FailCall("KELDOGetFSType", 1, EIO);
  EXPECT_FALSE(IsRemoteFileSystem("/v"));
  ExpectOneLog(LOG_DEBUG, "index:56 failed to statfs /v, reason=[(5)Input/output error]");
}

TEST_F(IndexTest, HomeSharesLieOnAVolume) {
  for (const char* path : {"/volume1/homes", "/volume/homes", "/volume1/homes/ann/photo"}) {
    EXPECT_TRUE(IsHomeSharePath(path)) << path;
  }
  for (const char* path : {"", "/", "homes", "/volume1", "/volume1/photo", "/volume1/homes2",
                           "/disk/homes", "/x/volume1/homes", "volume1/homes", "//volume1/homes"}) {
    EXPECT_FALSE(IsHomeSharePath(path)) << path;
  }
}

TEST_F(IndexTest, ExtensionsAreComparedWithoutRegardToCase) {
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

}  // namespace
}  // namespace keldo
