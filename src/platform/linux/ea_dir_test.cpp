#include "platform/ea_dir.h"

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <fstream>

#include "support/temp_dir.h"

namespace {

using keldo::testing::TempDir;

constexpr const char* kUnderscore = "KELDOPHOTO_THUMB_S.jpg";
constexpr const char* kColon = "KELDOPHOTO:THUMB_S.jpg";

std::string DirOf(const char* source) {
  std::array<char, 4096> buffer{};
  EXPECT_EQ(KELDOEADirPath(source, buffer.data(), buffer.size()), 0) << source;
  return buffer.data();
}

TEST(EADirPath, PutsTheMetadataDirectoryBesideTheFile) {
  EXPECT_EQ(DirOf("/v/a.jpg"), "/v/@eaDir/a.jpg");
  EXPECT_EQ(DirOf("a.jpg"), "@eaDir/a.jpg");
  EXPECT_EQ(DirOf("/a.jpg"), "/@eaDir/a.jpg");
  EXPECT_EQ(DirOf("/v/b c/a[1] \xFF%\n.jpg"), "/v/b c/@eaDir/a[1] \xFF%\n.jpg");
}

TEST(EADirPath, FillsTheBufferToTheLastByte) {
  const std::string expected = "/v/@eaDir/a.jpg";
  std::array<char, 32> buffer{};
  EXPECT_EQ(KELDOEADirPath("/v/a.jpg", buffer.data(), expected.size() + 1), 0);
  EXPECT_EQ(buffer.data(), expected);

  EXPECT_NE(KELDOEADirPath("/v/a.jpg", buffer.data(), expected.size()), 0);
  EXPECT_STREQ(buffer.data(), "");
  EXPECT_EQ(KLIBCErrGet(), 0x0100);
}

TEST(EADirPath, KeepsTheReasonOfAFailure) {
  std::array<char, 32> buffer{};
  EXPECT_NE(KELDOEADirPath("", buffer.data(), buffer.size()), 0);
  EXPECT_EQ(KLIBCErrGet(), 0x0200);
  const int line_of_no_name = KLIBCErrorGetLine();
  EXPECT_GT(line_of_no_name, 0);
  EXPECT_STREQ(KLIBCErrorGetFile(), "ea_dir.cpp");

  EXPECT_NE(KELDOEADirPath(std::string(40, 'a').c_str(), buffer.data(), buffer.size()), 0);
  EXPECT_EQ(KLIBCErrGet(), 0x0100);
  EXPECT_GT(KLIBCErrorGetLine(), line_of_no_name);

  EXPECT_NE(KELDOEADirPath("/v/", buffer.data(), buffer.size()), 0);
  EXPECT_EQ(KLIBCErrGet(), 0x0200);

  EXPECT_NE(KELDOEADirPath(nullptr, buffer.data(), buffer.size()), 0);
  EXPECT_EQ(KLIBCErrGet(), 0x0300);
}

TEST(EAIsHiddenDir, KnowsMetadataAndTrashDirectories) {
  for (const char* name :
       {"@eaDir", "@tmp", "@trash", "lost+found", ".Trash", ".Trashes", ".Trash-0", ".Trash-1000",
        ".thumbnails", "$RECYCLE.BIN", "System Volume Information"}) {
    EXPECT_NE(KELDOEAIsHiddenDir(name), 0) << name;
  }
}

TEST(EAIsHiddenDir, LeavesAllOtherDirectoriesVisible) {
  for (const char* name : {"", "photo", "@eadir", "@eaDir2", "eaDir", "@", ".Trash-", ".Trash-x",
                           ".Trash-10a", ".hidden", "Trash", "2024 @tmp"}) {
    EXPECT_EQ(KELDOEAIsHiddenDir(name), 0) << name;
  }
}

class EAFiles : public ::testing::Test {
 protected:
  void Make(const std::string& name) { std::ofstream(dir_.path() + "/" + name) << "x"; }
  bool Has(const std::string& name) { return std::filesystem::exists(dir_.path() + "/" + name); }

  TempDir dir_;
};

TEST_F(EAFiles, TheUnderscoreSpellingIsFoundFirst) {
  EXPECT_EQ(GetFileNameEAFileExist(dir_.path(), kUnderscore, kColon), "");
  Make(kColon);
  EXPECT_EQ(GetFileNameEAFileExist(dir_.path(), kUnderscore, kColon), kColon);
  Make(kUnderscore);
  EXPECT_EQ(GetFileNameEAFileExist(dir_.path(), kUnderscore, kColon), kUnderscore);
  EXPECT_EQ(GetFileNameEAFileExist(dir_.path() + "/none", kUnderscore, kColon), "");
}

TEST_F(EAFiles, BothSpellingsAreRemovedAndNothingElse) {
  Make(kUnderscore);
  Make(kColon);
  Make("other");
  EXPECT_TRUE(RemoveEAFile(dir_.path(), kUnderscore, kColon));
  EXPECT_FALSE(Has(kUnderscore));
  EXPECT_FALSE(Has(kColon));
  EXPECT_TRUE(Has("other"));
}

TEST_F(EAFiles, RemovingAMissingFileSucceeds) {
  EXPECT_TRUE(RemoveEAFile(dir_.path(), kUnderscore, kColon));
  Make(kColon);
  EXPECT_TRUE(RemoveEAFile(dir_.path(), kUnderscore, kColon));
  EXPECT_FALSE(Has(kColon));
  EXPECT_TRUE(RemoveEAFile(dir_.path() + "/none", kUnderscore, kColon));
}

TEST_F(EAFiles, RemovesTheSecondFileWhenTheFirstFails) {
  std::filesystem::create_directory(dir_.path() + "/" + kUnderscore);
  Make(kColon);
  EXPECT_FALSE(RemoveEAFile(dir_.path(), kUnderscore, kColon));
  EXPECT_TRUE(Has(kUnderscore));
  EXPECT_FALSE(Has(kColon));
}

TEST_F(EAFiles, OneExistingNameIsEnough) {
  EXPECT_FALSE(IsEAFileExist(dir_.path(), {"a", "b"}));
  EXPECT_FALSE(IsEAFileExist(dir_.path(), {}));
  Make("b");
  EXPECT_TRUE(IsEAFileExist(dir_.path(), {"a", "b"}));
}

}  // namespace
