// The command, run by its command line.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "ctl/library/library_test_support.h"

namespace keldo::ctl {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

class GalleryCommand : public LibraryTest {
 protected:
  int Gallery(Texts arguments) {
    arguments.insert(arguments.begin(), "gallery");
    return Status(arguments);
  }
  void FinishedPhoto(const std::string& name) const {
    Photo(name);
    AllThumbs(name);
  }
};

TEST_F(GalleryCommand, WritesThePageAndSaysWhatIsInIt) {
  FinishedPhoto("photo/a.jpg");
  FinishedPhoto("photo/2024/b.jpg");
  Photo("photo/2024/c.jpg");
  Photo("photo/2024/d.jpg", "");
  Markers("photo/2024/d.jpg", {"XL", "B", "M"});
  const std::string page = In("page.html");
  EXPECT_EQ(Gallery({"-o", page, "--title", "Our <photos>", In("photo")}), 0);
  EXPECT_EQ(output_, "Wrote " + page +
                         ": 4 photos in 2 folders, 1 with thumbnails missing or stale, 1 failed\n");
  EXPECT_EQ(errors_, "");
  EXPECT_THAT(Read(page), HasSubstr("<title>Our &lt;photos&gt;</title>"));
  EXPECT_THAT(Read(page), HasSubstr(R"("url":"./photo/2024/")"));
  struct stat status {};
  ASSERT_EQ(::stat(page.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0644U);
  const std::filesystem::directory_iterator entries(root_);
  EXPECT_EQ(std::distance(begin(entries), end(entries)), 2);  // No temporary is left.
}

TEST_F(GalleryCommand, PrintsNothingWhenQuiet) {
  FinishedPhoto("photo/a.jpg");
  EXPECT_EQ(Gallery({"-q", "-o", In("page.html"), In("photo")}), 0);
  EXPECT_EQ(output_ + errors_, "");
  EXPECT_TRUE(std::filesystem::exists(In("page.html")));
}

TEST_F(GalleryCommand, WritesToStandardOutputForADash) {
  FinishedPhoto("photo/a.jpg");
  EXPECT_EQ(Gallery({"-o", "-", In("photo")}), 0);
  EXPECT_THAT(output_, StartsWith("<!DOCTYPE html>"));
  EXPECT_THAT(output_, HasSubstr("<h1>Thumbnails of photo</h1>"));
  EXPECT_THAT(output_, Not(HasSubstr("Wrote")));
  EXPECT_FALSE(std::filesystem::exists("-"));
}

TEST_F(GalleryCommand, WritesToTheCurrentDirectoryByDefault) {
  FinishedPhoto("photo/a.jpg");
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(In("photo"));
  const int status = Gallery({"."});
  std::filesystem::current_path(before);
  EXPECT_EQ(status, 0) << errors_;
  EXPECT_EQ(output_, "Wrote thumbnails.html: 1 photo in 1 folder\n");
  EXPECT_THAT(Read(In("photo/thumbnails.html")), HasSubstr(R"("url":"./")"));
}

TEST_F(GalleryCommand, ReplacesAnEarlierPage) {
  FinishedPhoto("photo/a.jpg");
  const std::string page = In("page.html");
  ASSERT_EQ(Gallery({"-o", page, In("photo")}), 0);
  FinishedPhoto("photo/later.jpg");
  EXPECT_EQ(Gallery({"-o", page, In("photo")}), 0);
  EXPECT_THAT(Read(page), HasSubstr("later.jpg"));
}

TEST_F(GalleryCommand, DoesNotOverwriteOtherFiles) {
  FinishedPhoto("photo/a.jpg");
  const std::string photo = In("photo/a.jpg");
  EXPECT_EQ(Gallery({"-o", photo, In("photo")}), 1);
  EXPECT_EQ(errors_,
            "keldothumbctl: " + photo + ": exists and is not a web page; not overwritten\n");
  EXPECT_EQ(Read(photo), "photo");
}

TEST_F(GalleryCommand, DoesNotReplaceADevice) {
  FinishedPhoto("photo/a.jpg");
  const std::string pipe = In("pipe");
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_EQ(Gallery({"-o", pipe, In("photo")}), 1);
  EXPECT_EQ(errors_, "keldothumbctl: " + pipe + ": not a regular file\n");
  EXPECT_TRUE(std::filesystem::is_fifo(pipe));
}

TEST_F(GalleryCommand, FailsWhenThePageCannotBeWritten) {
  FinishedPhoto("photo/a.jpg");
  const std::string nowhere = In("none/page.html");
  EXPECT_EQ(Gallery({"-o", nowhere, In("photo")}), 1);
  EXPECT_EQ(errors_, "keldothumbctl: " + nowhere + ": No such file or directory\n");
  EXPECT_EQ(output_, "");
  EXPECT_EQ(Gallery({"-o", In("photo"), In("photo")}), 1);
  EXPECT_EQ(errors_, "keldothumbctl: " + In("photo") + ": Is a directory\n");
}

TEST_F(GalleryCommand, ReportsWrongUsage) {
  EXPECT_EQ(Gallery({}), 2);
  EXPECT_EQ(Gallery({In("none")}), 2);
  EXPECT_THAT(errors_, HasSubstr("none: No such file or directory"));
  FinishedPhoto("photo/a.jpg");
  EXPECT_EQ(Gallery({"-o", "", In("photo")}), 2);
  EXPECT_EQ(Gallery({"--profile", In("none"), In("photo")}), 2);
}

TEST_F(GalleryCommand, WritesAPageForAnEmptyLibrary) {
  std::filesystem::create_directories(In("photo"));
  const std::string page = In("page.html");
  EXPECT_EQ(Gallery({"-o", page, In("photo")}), 0);
  EXPECT_EQ(output_, "Wrote " + page + ": 0 photos in 0 folders\n");
  EXPECT_THAT(Read(page), HasSubstr("<!DOCTYPE html>"));
}

TEST_F(GalleryCommand, AcceptsNamesOfAnyBytes) {
  FinishedPhoto("-f\xFFoto/<script>\n\xE9.jpg");
  const std::string page = In("p\xFF g.html");
  EXPECT_EQ(Gallery({"-o", page, "--title", "T\xFF", In("-f\xFFoto")}), 0);
  EXPECT_THAT(output_, HasSubstr(R"(p\xff g.html: 1 photo)"));
  EXPECT_THAT(Read(page), HasSubstr(R"(<title>T\xff</title>)"));
  EXPECT_THAT(Read(page), HasSubstr(R"("url":"./-f%FFoto/")"));
}

}  // namespace
}  // namespace keldo::ctl
