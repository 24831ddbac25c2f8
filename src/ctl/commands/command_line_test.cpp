#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/value.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "ctl/commands/command.h"
#include "index/index_database.h"
#include "platform/index_ipc.h"
#include "support/temp_dir.h"
#include "util/json_line.h"

namespace keldo::ctl {
namespace {

using ::testing::HasSubstr;

class CommandLine : public ::testing::Test {
 protected:
  CommandLine()
      : database_(dir_.path() + "/state/index.db"),
        photos_(dir_.path() + "/photos"),
        holiday_(photos_ + "/2024 [1]\xFF%") {
    std::filesystem::create_directories(holiday_);
  }

  // The output of a command that succeeds.
  std::string Run(const std::vector<std::string>& arguments) {
    EXPECT_EQ(Status(arguments), 0) << errors_;
    EXPECT_EQ(errors_, "");
    return output_;
  }
  int Status(const std::vector<std::string>& arguments) {
    std::ostringstream out;
    std::ostringstream err;
    const int status = RunCommandLine(arguments, Environment{database_, "", ""}, out, err);
    output_ = out.str();
    errors_ = err.str();
    return status;
  }

  testing::TempDir dir_;
  std::string database_;
  std::string photos_;
  std::string holiday_;
  std::string output_;
  std::string errors_;
};

TEST_F(CommandLine, UsesTheDefaultWithoutCreatingADatabase) {
  EXPECT_EQ(Run({"index", "mask", photos_}), photos_ + ": 63 (S, SM, M, B, L, XL), the default\n");
  EXPECT_EQ(Run({"index", "mask", photos_, "default"}),
            photos_ + ": 63 (S, SM, M, B, L, XL), the default\n");
  EXPECT_FALSE(std::filesystem::exists(dir_.path() + "/state"));
}

TEST_F(CommandLine, AMaskAppliesToEverythingBelow) {
  EXPECT_EQ(Run({"index", "mask", photos_, "S,XL"}), photos_ + ": 17 (S, XL), set here\n");
  EXPECT_EQ(Run({"index", "mask", photos_}), photos_ + ": 17 (S, XL), set here\n");
  EXPECT_EQ(Run({"index", "mask", holiday_}),
            holiday_ + ": 17 (S, XL), inherited from " + photos_ + "\n");
  EXPECT_EQ(Run({"index", "mask", dir_.path()}),
            dir_.path() + ": 63 (S, SM, M, B, L, XL), the default\n");
}

TEST_F(CommandLine, TheNearestMaskAppliesUntilItIsRemoved) {
  Run({"index", "mask", photos_, "0x3"});
  EXPECT_EQ(Run({"index", "mask", holiday_, "0"}), holiday_ + ": 0 (no thumbnails), set here\n");
  EXPECT_EQ(Run({"index", "mask", holiday_, "default"}),
            holiday_ + ": 3 (S, M), inherited from " + photos_ + "\n");
}

TEST_F(CommandLine, VideosHaveTheirOwnMasks) {
  Run({"index", "mask", photos_, "1"});
  Run({"index", "mask", "--video", photos_, "2"});
  EXPECT_EQ(Run({"index", "mask", photos_}), photos_ + ": 1 (S), set here\n");
  EXPECT_EQ(Run({"index", "mask", photos_, "--video"}), photos_ + ": 2 (M), set here\n");
}

TEST_F(CommandLine, TheProgramThatMakesThumbnailsSeesTheMask) {
  index::UseIndexAt(database_);
  Run({"index", "mask", photos_ + "/./", "5"});
  int mask = 0;
  EXPECT_EQ(keldoindexutils::ipc::KELDOIDX_GetThumbSizeMap((holiday_ + "/a.jpg").c_str(),
                                                           THUMB_TYPE_PHOTO, &mask),
            0);
  EXPECT_EQ(mask, 5);
  // It also sees a change while it runs.
  Run({"index", "mask", photos_, "7"});
  keldoindexutils::ipc::KELDOIDX_GetDirThumbSizeMap(holiday_.c_str(), THUMB_TYPE_PHOTO, &mask);
  EXPECT_EQ(mask, 7);
}

TEST_F(CommandLine, TheDatabaseModeDoesNotDependOnTheUmask) {
  const mode_t before = umask(0077);
  Run({"index", "mask", photos_, "1"});
  umask(before);
  const auto mode_of = [](const std::string& path) {
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
  };
  EXPECT_EQ(mode_of(dir_.path() + "/state"), 0755U);
  EXPECT_EQ(mode_of(database_), 0644U);
}

TEST_F(CommandLine, PrintsTheSameAsJson) {
  Json::Value value;
  ASSERT_TRUE(ParseJsonObject(Run({"index", "mask", photos_, "--json"}), value));
  EXPECT_EQ(value["directory"], photos_);
  EXPECT_EQ(value["type"], "photo");
  EXPECT_EQ(value["mask"], 63);
  EXPECT_TRUE(value["set_on"].isNull());
  EXPECT_EQ(value["kinds"].size(), 6U);

  Run({"index", "mask", photos_, "S,M", "--video"});
  ASSERT_TRUE(ParseJsonObject(Run({"index", "mask", holiday_, "--json", "--video"}), value));
  EXPECT_EQ(value["directory"], holiday_);
  EXPECT_EQ(value["type"], "video");
  EXPECT_EQ(value["mask"], 3);
  EXPECT_EQ(value["set_on"], photos_);
  EXPECT_EQ(value["kinds"][0], "S");
  EXPECT_EQ(value["kinds"][1], "M");
}

TEST_F(CommandLine, SetsMasksOfDirectoriesOnlyButRemovesThoseOfDeletedOnes) {
  EXPECT_EQ(Status({"index", "mask", photos_ + "/none", "1"}), 1);
  EXPECT_EQ(errors_, "keldothumbctl: " + photos_ + "/none: no such directory\n");
  EXPECT_EQ(output_, "");

  Run({"index", "mask", holiday_, "1"});
  std::filesystem::remove_all(holiday_);
  EXPECT_EQ(Run({"index", "mask", holiday_}), holiday_ + ": 1 (S), set here\n");
  EXPECT_EQ(Run({"index", "mask", holiday_, "default"}),
            holiday_ + ": 63 (S, SM, M, B, L, XL), the default\n");
}

TEST_F(CommandLine, FailsWithAnUnusableDatabase) {
  std::filesystem::create_directory(dir_.path() + "/state");
  std::ofstream(database_) << std::string(5000, 'x');
  for (const auto& arguments : std::vector<std::vector<std::string>>{
           {"index", "mask", photos_}, {"index", "mask", photos_, "1"}}) {
    EXPECT_EQ(Status(arguments), 1);
    EXPECT_EQ(errors_, "keldothumbctl: " + database_ + ": file is not a database\n");
    EXPECT_EQ(output_, "");
  }
}

TEST_F(CommandLine, FailsWhenTheDatabaseCannotBeCreated) {
  database_ = dir_.path() + "/none/state/index.db";
  EXPECT_EQ(Status({"index", "mask", photos_, "1"}), 1);
  EXPECT_EQ(errors_, "keldothumbctl: " + database_ + ": No such file or directory\n");
}

TEST_F(CommandLine, FailsWhenTheOutputCannotBeWritten) {
  std::ofstream full("/dev/full");
  std::ostringstream err;
  EXPECT_EQ(RunCommandLine({"index", "mask", photos_}, Environment{database_, "", ""}, full, err),
            1);
  EXPECT_EQ(err.str(), "keldothumbctl: standard output: cannot be written\n");
}

TEST_F(CommandLine, WrongUsageHasStatusTwo) {
  for (const auto& arguments :
       std::vector<std::vector<std::string>>{{},
                                             {"index"},
                                             {"index", "mask"},
                                             {"index", "mask", photos_, "64"},
                                             {"index", "mask", photos_, "XXL"},
                                             {"index", "mask", photos_, ""},
                                             {"index", "mask", photos_, "1", "2"},
                                             {"index", "mask", photos_, "--films"},
                                             {"nonsense"}}) {
    EXPECT_EQ(Status(arguments), 2);
    EXPECT_NE(errors_, "");
    EXPECT_EQ(output_, "");
  }
  EXPECT_FALSE(std::filesystem::exists(database_));
}

TEST_F(CommandLine, HelpHasExamples) {
  EXPECT_THAT(Run({"--help"}), HasSubstr("index"));
  const std::string help = Run({"index", "mask", "--help"});
  EXPECT_THAT(help, HasSubstr("keldothumbctl index mask /volume1/photo S,M,XL"));
  EXPECT_THAT(help, HasSubstr("--video"));
}

TEST_F(CommandLine, ANameThatBeginsWithADashFollowsTwoDashes) {
  const auto before = std::filesystem::current_path();
  std::filesystem::current_path(photos_);
  std::filesystem::create_directory("-x");
  EXPECT_EQ(Run({"index", "mask", "--", "-x", "4"}), photos_ + "/-x: 4 (B), set here\n");
  std::filesystem::current_path(before);
}

}  // namespace
}  // namespace keldo::ctl
