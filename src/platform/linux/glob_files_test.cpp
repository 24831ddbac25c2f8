#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "platform/index_ipc.h"
#include "support/temp_dir.h"

namespace {

using keldo::testing::TempDir;
using keldoindexutils::filesystem::GlobFiles;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class GlobFilesTest : public ::testing::Test {
 protected:
  GlobFilesTest() : photo_(dir_.path() + "/a[1]*?.jpg") {
    std::filesystem::create_directory(photo_);
  }
  void Make(const std::string& name) { std::ofstream(photo_ + "/" + name) << "x"; }

  TempDir dir_;
  std::string photo_;  // a directory whose own name looks like a pattern
};

TEST_F(GlobFilesTest, OnlyTheNameIsAPattern) {
  Make("KELDOPHOTO_THUMB_S.fail");
  Make("KELDOPHOTO_THUMB_M.fail");
  Make("KELDOPHOTO_THUMB_M.jpg");
  EXPECT_THAT(GlobFiles(photo_, "*.fail"), ElementsAre(photo_ + "/KELDOPHOTO_THUMB_M.fail",
                                                       photo_ + "/KELDOPHOTO_THUMB_S.fail"));
  EXPECT_THAT(GlobFiles(photo_, "*_[SM].f???"), ElementsAre(photo_ + "/KELDOPHOTO_THUMB_M.fail",
                                                            photo_ + "/KELDOPHOTO_THUMB_S.fail"));
  EXPECT_THAT(GlobFiles(photo_, "*.tmp"), IsEmpty());
}

TEST_F(GlobFilesTest, PathsComeInByteOrder) {
  for (const char* name : {"b", "B", "a", "\xFF", "\x7F", " "})
    Make(name);
  EXPECT_THAT(GlobFiles(photo_, "*"),
              ElementsAre(photo_ + "/ ", photo_ + "/B", photo_ + "/a", photo_ + "/b",
                          photo_ + "/\x7F", photo_ + "/\xFF"));
}

TEST_F(GlobFilesTest, OnlyADotMatchesALeadingDot) {
  Make(".hidden.fail");
  Make("shown.fail");
  EXPECT_THAT(GlobFiles(photo_, "*.fail"), ElementsAre(photo_ + "/shown.fail"));
  EXPECT_THAT(GlobFiles(photo_, "[.]*"), IsEmpty());
  EXPECT_THAT(GlobFiles(photo_, ".*"), ElementsAre(photo_ + "/.hidden.fail"));
}

TEST_F(GlobFilesTest, NamesAreBytes) {
  Make("-a\n%\"' \xE9.fail");
  EXPECT_THAT(GlobFiles(photo_, "*.fail"), ElementsAre(photo_ + "/-a\n%\"' \xE9.fail"));
}

TEST_F(GlobFilesTest, AnUnreadableDirectoryHasNoEntries) {
  EXPECT_THAT(GlobFiles(photo_ + "/none", "*"), IsEmpty());
  Make("file");
  EXPECT_THAT(GlobFiles(photo_ + "/file", "*"), IsEmpty());
}

}  // namespace
