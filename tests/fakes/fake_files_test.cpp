#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <string>
#include <vector>

#include "fakes/core_test.h"
#include "platform/conf_parser.h"
#include "platform/ea_dir.h"
#include "platform/file.h"
#include "platform/index_ipc.h"
#include "thumbs/paths.h"

namespace keldo::testing {
namespace {

using Texts = std::vector<std::string>;
using FakeFilesTest = CoreTest;

// ---- Files ----

TEST_F(FakeFilesTest, FileOperationsWorkOnRealFiles) {
  const std::string path = WriteFile(In("a"), "");
  EXPECT_TRUE(keldoindexutils::stat::DoesFileExist(path));
  EXPECT_FALSE(keldoindexutils::stat::DoesFileExistAndHasSize(path));
  WriteFile(path, "x");
  EXPECT_TRUE(keldoindexutils::stat::DoesFileExistAndHasSize(path));
  EXPECT_FALSE(keldoindexutils::stat::DoesDirExist(path));
  EXPECT_TRUE(keldoindexutils::stat::DoesDirExist(Dir()));
  EXPECT_EQ(KLIBCFileUTime(path.c_str(), 3, {timespec{5, 0}, timespec{6, 0}, timespec{71, 72}}), 0);
  EXPECT_EQ(ModificationTime(path), 6);
  EXPECT_EQ(fake().calls.back(), "KLIBCFileUTime(" + path + ", 3, 5, 0, 6, 0, 71, 72)");
}

TEST_F(FakeFilesTest, MetadataDirectoryStandsBesideTheFile) {
  std::array<char, 64> buffer{};
  EXPECT_EQ(KELDOEADirPath("/v/a.jpg", buffer.data(), buffer.size()), 0);
  EXPECT_STREQ(buffer.data(), "/v/@eaDir/a.jpg");
  EXPECT_EQ(KELDOEADirPath("a.jpg", buffer.data(), buffer.size()), 0);
  EXPECT_STREQ(buffer.data(), "@eaDir/a.jpg");
  EXPECT_NE(KELDOEADirPath("/v/", buffer.data(), buffer.size()), 0);
  EXPECT_NE(KELDOEADirPath("", buffer.data(), buffer.size()), 0);
  EXPECT_EQ(KELDOEADirPath("/v/a.jpg", buffer.data(), 16), 0);
  EXPECT_NE(KELDOEADirPath("/v/a.jpg", buffer.data(), 15), 0);
}

TEST_F(FakeFilesTest, BothSpellingsAreProbedInOrderAndRemoved) {
  EXPECT_EQ(GetFileNameEAFileExist(Dir(), "T_S", "T:S"), "");
  WriteFile(In("T:S"), "");
  EXPECT_EQ(GetFileNameEAFileExist(Dir(), "T_S", "T:S"), "T:S");
  WriteFile(In("T_S"), "");
  EXPECT_EQ(GetFileNameEAFileExist(Dir(), "T_S", "T:S"), "T_S");
  EXPECT_TRUE(IsEAFileExist(Dir(), {"none", "T:S"}));
  EXPECT_TRUE(RemoveEAFile(Dir(), "T_S", "T:S"));
  EXPECT_FALSE(IsEAFileExist(Dir(), {"T_S", "T:S"}));
  EXPECT_TRUE(RemoveEAFile(Dir(), "T_S", "T:S"));
}

TEST_F(FakeFilesTest, GlobTakesTheDirectoryLiterally) {
  const std::string directory = MakeDir(In("a[1]*.jpg"));
  WriteFile(directory + "/b.fail", "");
  WriteFile(directory + "/a.fail", "");
  WriteFile(directory + "/.hidden.fail", "");
  EXPECT_EQ(keldoindexutils::filesystem::GlobFiles(directory, "*.fail"),
            (Texts{directory + "/a.fail", directory + "/b.fail"}));
}

TEST_F(FakeFilesTest, FileSystemsAnswerByPath) {
  fake().fs_types = {{"/net", kRemoteFs}, {"/iso", kImageFs}};
  EXPECT_EQ(KELDOGetFSType("/v", 0), kLocalFs);
  EXPECT_EQ(KELDOFSIsRemoteFS(KELDOGetFSType("/net", 0)), 1);
  EXPECT_EQ(KELDOFSIsImageFS(KELDOGetFSType("/net", 0)), 0);
  EXPECT_EQ(KELDOFSIsImageFS(KELDOGetFSType("/iso", 0)), 1);
  fake().FailCall("KELDOGetFSType", 1, ENOTDIR);
  EXPECT_EQ(KELDOGetFSType("/v", 0), -1);
  EXPECT_EQ(errno, ENOTDIR);
}

// ---- Text files ----

TEST_F(FakeFilesTest, KeyValueFilesAreReadAndWritten) {
  std::array<char, 8> value{};
  EXPECT_EQ(KLIBCFileGetKeyValue(paths::kPhotoProgress, "total", value.data(), value.size(), 0),
            -1);
  fake().WriteLines(paths::kPhotoProgress, {"total=\"12\"", "total_thumb=34"});
  EXPECT_EQ(KLIBCFileGetKeyValue(paths::kPhotoProgress, "total", value.data(), value.size(), 0), 2);
  EXPECT_STREQ(value.data(), "12");
  EXPECT_EQ(KLIBCFileGetKeyValue(paths::kPhotoProgress, "none", value.data(), value.size(), 0), 0);
  EXPECT_EQ(KLIBCFileSetKeyValue(paths::kPhotoProgress, "total", "13", 0), 0);
  EXPECT_EQ(KLIBCFileSetKeyValue(paths::kPhotoProgress, "new", "1", 0), 0);
  EXPECT_EQ(fake().ReadLines(paths::kPhotoProgress),
            (Texts{"total=13", "total_thumb=34", "new=1"}));
}

TEST_F(FakeFilesTest, LinesAreFoundByEqualTextOrBeginningWhenAsked) {
  std::array<char, 32> line{};
  EXPECT_EQ(KLIBCFileGetLine(paths::kThumbQueue, "/v/a", line.data(), line.size(), 1028), -1);
  fake().WriteLines(paths::kThumbQueue, {"/v/ab"});
  EXPECT_EQ(KLIBCFileGetLine(paths::kThumbQueue, "/v/a", line.data(), line.size(), 1028), 0);
  EXPECT_EQ(KLIBCFileGetLine(paths::kThumbQueue, "/v/ab", line.data(), line.size(), 1028), 5);
  fake().get_line_finds_longer_lines = true;
  EXPECT_EQ(KLIBCFileGetLine(paths::kThumbQueue, "/v/a", line.data(), line.size(), 1028), 5);
  EXPECT_STREQ(line.data(), "/v/ab");
}

TEST_F(FakeFilesTest, QueuesALineOnce) {
  using keldoindexutils::filesystem::WriteIndexQueue;
  EXPECT_TRUE(WriteIndexQueue("/v/a", paths::kThumbQueue));
  EXPECT_TRUE(WriteIndexQueue("/v/b", paths::kThumbQueue));
  EXPECT_TRUE(WriteIndexQueue("/v/a", paths::kThumbQueue));
  EXPECT_FALSE(WriteIndexQueue("/v/a\nb", paths::kThumbQueue));
  fake().FailCall("WriteIndexQueue");
  EXPECT_FALSE(WriteIndexQueue("/v/c", paths::kThumbQueue));
  EXPECT_EQ(fake().ReadLines(paths::kThumbQueue), (Texts{"/v/a", "/v/b"}));
}

TEST_F(FakeFilesTest, IniFilesAreParsed) {
  const std::string path = WriteFile(
      In("p.conf"), "; c\n[b]\nsize = 7\n name= x y \n\n[a]\n# c\nsize=ab\n[b]\nsize=8\n");
  KELDOUtils::ConfParser parser;
  ASSERT_NE(parser.loadFromFile(path.c_str()), 0);
  EXPECT_EQ(parser.enumSections(), (Texts{"b", "a"}));
  EXPECT_EQ(parser.getInt("b", "size", 1), 8);
  EXPECT_EQ(parser.getInt("a", "size", 1), 1);
  EXPECT_EQ(parser.getString("b", "name", ""), "x y");
  EXPECT_EQ(parser.getString("c", "name", "none"), "none");
  EXPECT_EQ(KELDOUtils::ConfParser().loadFromFile(WriteFile(In("bad"), "rubbish\n").c_str()), 0);
  EXPECT_EQ(KELDOUtils::ConfParser().loadFromFile(In("missing").c_str()), 0);
  EXPECT_EQ(KELDOUtils::ConfParser().loadFromFile(Dir().c_str()), 0);
}

}  // namespace
}  // namespace keldo::testing
