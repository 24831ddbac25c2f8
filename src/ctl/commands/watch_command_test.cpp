#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "ctl/commands/command.h"
#include "support/temp_dir.h"

namespace keldo::ctl {
namespace {

using ::testing::HasSubstr;

class WatchCommandTest : public ::testing::Test {
 protected:
  WatchCommandTest() {
    environment_.keldothumb = temp_.path() + "/keldothumb";
    environment_.profile_path = temp_.path() + "/thumb.conf";
    std::ofstream(environment_.profile_path)
        << "[thumb_s]\nsize=120\nquality=90\nfilename=KELDOPHOTO_THUMB_S.jpg\nphase=0\n";
  }

  int Run(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "watch");
    return RunCommandLine(arguments, environment_, out_, err_);
  }

  testing::TempDir temp_;
  Environment environment_;
  std::ostringstream out_;
  std::ostringstream err_;
};

TEST_F(WatchCommandTest, HelpShowsOptionsAndExamples) {
  EXPECT_EQ(Run({"--help"}), 0);
  for (const char* text : {"--quiet-period SECONDS", "--rescan SECONDS", "--jobs", "--profile FILE",
                           "--nice", "Examples:", "SIGTERM"}) {
    EXPECT_THAT(out_.str(), HasSubstr(text));
  }
}

TEST_F(WatchCommandTest, RefusesWrongUsage) {
  EXPECT_EQ(Run({}), 2);
  EXPECT_EQ(Run({"--quiet-period", "-1", temp_.path()}), 2);
  EXPECT_EQ(Run({"--quiet-period", "soon", temp_.path()}), 2);
  EXPECT_EQ(Run({"--quiet-period", "nan", temp_.path()}), 2);
  EXPECT_EQ(Run({"--rescan", "0", temp_.path()}), 2);
  EXPECT_EQ(Run({"-j", "0", temp_.path()}), 2);
  EXPECT_EQ(Run({temp_.path() + "/missing"}), 2);
}

TEST_F(WatchCommandTest, NeedsAProfileFile) {
  std::filesystem::remove(environment_.profile_path);
  EXPECT_EQ(Run({temp_.path()}), 2);
  EXPECT_THAT(err_.str(), HasSubstr(environment_.profile_path));
}

TEST_F(WatchCommandTest, NeedsTheProgram) {
  EXPECT_EQ(Run({temp_.path()}), 1);
  EXPECT_EQ(err_.str(),
            "keldothumbctl: " + environment_.keldothumb + ": No such file or directory\n");
}

}  // namespace
}  // namespace keldo::ctl
