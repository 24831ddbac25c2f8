// status, failed and dirs, by their command lines.
#include <json/value.h>

#include "ctl/library/library_test_support.h"
#include "util/json_line.h"

namespace keldo::ctl {
namespace {

using ::testing::HasSubstr;

class LibraryCommandsTest : public LibraryTest {
 protected:
  void SetUp() override {
    Photo("a/done.jpg");
    AllThumbs("a/done.jpg");
    Photo("a/new.jpg");
    Photo("b/stale.jpg");
    AllThumbs("b/stale.jpg");
    Thumbs("b/stale.jpg", {"XL"}, -1);
    Write(In("notes/readme.txt"), "x");
  }
  Json::Value RunJson(const Texts& arguments, int status = 0) {
    Json::Value value;
    EXPECT_TRUE(ParseJsonObject(Run(arguments, status), value)) << output_;
    return value;
  }
};

TEST_F(LibraryCommandsTest, StatusCountsEachDirectoryAndTheTotal) {
  EXPECT_EQ(Run({"status", root_}),
            "photos  present  missing  stale  failed  directory\n"
            "     2        6        6      0       0  " +
                In("a") +
                "\n"
                "     1        5        0      1       0  " +
                In("b") +
                "\n"
                "     3       11        6      1       0  total\n");
}

TEST_F(LibraryCommandsTest, QuietStatusPrintsOnlyTheTotal) {
  EXPECT_EQ(Run({"status", "-q", root_}),
            "photos  present  missing  stale  failed  directory\n"
            "     3       11        6      1       0  total\n");
}

TEST_F(LibraryCommandsTest, StatusByKindGoesFromSmallestToLargest) {
  EXPECT_THAT(Run({"status", "--by-kind", root_}),
              HasSubstr("\nkind  present  missing  stale  failed\n"
                        "S           2        1      0       0\n"
                        "SM          2        1      0       0\n"
                        "M           2        1      0       0\n"
                        "B           2        1      0       0\n"
                        "L           2        1      0       0\n"
                        "XL          1        1      1       0\n"));
}

TEST_F(LibraryCommandsTest, StatusIsOneWhenAPhotoFailed) {
  Markers("a/new.jpg", {"XL", "S"});
  const Json::Value value = RunJson({"status", "--json", "--by-kind", root_}, 1);
  EXPECT_EQ(value["total"]["photos"], 3);
  EXPECT_EQ(value["total"]["failed_photos"], 1);
  EXPECT_EQ(value["total"]["unfinished_photos"], 1);
  EXPECT_EQ(value["total"]["thumbnails"]["present"], 11);
  EXPECT_EQ(value["total"]["thumbnails"]["failed"], 2);
  EXPECT_EQ(value["total"]["kinds"]["XL"]["stale"], 1);
  EXPECT_EQ(value["directories"].size(), 2U);
  EXPECT_EQ(value["directories"][0]["path"], In("a"));
  EXPECT_EQ(value["directories"][0]["thumbnails"]["missing"], 4);
}

TEST_F(LibraryCommandsTest, UsesColoursOnlyOnRequest) {
  EXPECT_THAT(Run({"status", "--color", "always", root_}), HasSubstr("\033[32m11\033[0m"));
  environment_.terminal_out = true;
  EXPECT_THAT(Run({"status", root_}), HasSubstr("\033["));
  EXPECT_EQ(Run({"status", "--color", "never", root_}).find('\033'), std::string::npos);
  environment_.colour_forbidden = true;
  EXPECT_EQ(Run({"status", root_}).find('\033'), std::string::npos);
}

TEST_F(LibraryCommandsTest, CountsOverlappingTreesOnce) {
  EXPECT_THAT(Run({"status", root_, In("a"), root_ + "/./"}), HasSubstr("3       11"));
}

TEST_F(LibraryCommandsTest, AcceptsAnEmptyLibrary) {
  EXPECT_THAT(Run({"status", In("notes")}), HasSubstr("0        0        0      0       0  total"));
  EXPECT_EQ(Run({"failed", In("notes")}), "");
  EXPECT_EQ(Run({"dirs", In("notes")}), "");
}

TEST_F(LibraryCommandsTest, ReportsAFailedPhotoWithTheReason) {
  Photo("a/odd\nname.jpg", "");
  Markers("a/odd\nname.jpg", {"XL"});
  EXPECT_EQ(Run({"failed", root_}, 1), In("a/odd\\nname.jpg") + ": is empty\n");
  EXPECT_EQ(Run({"failed", "-0", root_}, 1), In("a/odd\nname.jpg") + std::string(1, '\0'));
  const Json::Value value = RunJson({"failed", "--json", root_}, 1);
  EXPECT_EQ(value["failed"][0]["path"], In("a/odd\nname.jpg"));
  EXPECT_EQ(value["failed"][0]["reason"], "is empty");
  EXPECT_EQ(Run({"failed", In("b")}), "");
}

TEST_F(LibraryCommandsTest, DirsListsDirectoriesWithPhotos) {
  EXPECT_EQ(Run({"dirs", root_}), In("a") + "\n" + In("b") + "\n");
  EXPECT_EQ(Run({"dirs", "-0", root_}), In("a") + '\0' + In("b") + '\0');
  Thumbs("b/stale.jpg", {"XL"});
  EXPECT_EQ(Run({"dirs", "--todo", root_}), In("a") + "\n");
}

TEST_F(LibraryCommandsTest, ANameWithALineBreakNeedsNull) {
  Photo("x\ny/c.jpg");
  EXPECT_EQ(Status({"dirs", root_}), 1);
  EXPECT_EQ(output_, In("a") + "\n" + In("b") + "\n");
  EXPECT_EQ(errors_, "keldothumbctl: " + In("x\\ny") + ": the name has a line break; use -0\n");
  EXPECT_EQ(Run({"dirs", "-0", In("x\ny")}), In("x\ny") + std::string(1, '\0'));
}

TEST_F(LibraryCommandsTest, TheProfileDecidesWhatIsWanted) {
  const std::string profile = dir_.path() + "/thumb.conf";
  Write(profile, "[thumb_s]\nfilename=KELDOPHOTO_THUMB_S.jpg\n");
  EXPECT_THAT(Run({"status", "--profile", profile, root_}),
              HasSubstr("3        2        1      0       0  total"));
  environment_.profile_path = profile;
  EXPECT_THAT(Run({"status", root_}), HasSubstr("3        2        1      0       0  total"));
}

TEST_F(LibraryCommandsTest, WrongUsageHasStatusTwoAndSaysWhy) {
  Write(dir_.path() + "/bad.conf", "rubbish\n");
  const std::vector<std::pair<Texts, std::string>> cases{
      {{"status", In("none")}, In("none") + ": No such file or directory"},
      {{"status", In("a/new.jpg")}, In("a/new.jpg") + ": not a directory"},
      {{"status", In("a/@eaDir/done.jpg")}, "holds thumbnails, not photos"},
      {{"status", "--profile", In("none"), root_}, In("none") + ": No such file"},
      {{"status", "--profile", dir_.path() + "/bad.conf", root_}, "not a profile file"},
      {{"make", root_}, "not installed; name a profile file with --profile"},
      {{"status"}, "DIR is required"},
      {{"failed", "-0", "--json", root_}, "excludes"},
      {{"status", "--color", "pink", root_}, "pink"},
      {{"make", "-j", "0", root_}, "-j"},
      {{"make", "--only-missing-kinds", "XXL", root_}, "XXL"}};
  for (const auto& [arguments, text] : cases) {
    EXPECT_EQ(Status(arguments), 2) << text;
    EXPECT_THAT(errors_, HasSubstr(text));
    EXPECT_EQ(output_, "");
  }
}

TEST_F(LibraryCommandsTest, EveryCommandHasHelpWithExamples) {
  for (const char* command : {"make", "status", "failed", "retry", "clean", "dirs", "gallery",
                              "watch", "doctor", "progress"}) {
    EXPECT_THAT(Run({command, "--help"}), HasSubstr("keldothumbctl " + std::string(command)));
    EXPECT_THAT(Run({"--help"}), HasSubstr(std::string("  ") + command + " "));
  }
  EXPECT_THAT(Run({"--version"}), HasSubstr("keldothumbctl 0."));
}

TEST_F(LibraryCommandsTest, AcceptsANameInBrackets) {
  Photo("[a]/x.jpg");
  Photo("[a,b]/y.jpg");
  const auto before = std::filesystem::current_path();
  std::filesystem::current_path(root_);
  EXPECT_EQ(Run({"dirs", "[a]"}), In("[a]") + "\n");
  EXPECT_EQ(Run({"dirs", "--", "[a,b]", "[a]"}), In("[a,b]") + "\n" + In("[a]") + "\n");
  std::filesystem::current_path(before);
}

TEST_F(LibraryCommandsTest, ReportsAnUnreadablePhotoOnce) {
  // A link to a name that no file can have.
  std::filesystem::create_symlink(std::string(300, 'x'), In("a/long.jpg"));
  const std::string problem = "keldothumbctl: " + In("a") + ": File name too long\n";
  const std::string profile = dir_.path() + "/thumb.conf";
  Write(profile, "[thumb_s]\nfilename=KELDOPHOTO_THUMB_S.jpg\n");
  Thumbs("a/new.jpg", {"S"});
  for (const Texts& command : {Texts{"status"}, Texts{"make"}, Texts{"dirs"}}) {
    Texts arguments = command;
    arguments.insert(arguments.end(), {"--profile", profile, root_});
    EXPECT_EQ(Status(arguments), 1) << command[0];
    EXPECT_EQ(errors_, problem) << command[0];
  }
}

TEST_F(LibraryCommandsTest, CountsADirectoryWithTwoPathsOnce) {
  std::filesystem::create_directory_symlink(root_, dir_.path() + "/link");
  EXPECT_THAT(Run({"status", root_, dir_.path() + "/link"}), HasSubstr("     3       11        6"));
}

}  // namespace
}  // namespace keldo::ctl
