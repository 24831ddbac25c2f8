// The command line, the pid files and the targets.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "e2e/fixtures.h"

namespace keldo::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kPidFile = "/var/run/keldothumb.pid";

// Checks that a run did nothing and left nothing behind.
void ExpectNothingDone(const Sandbox& box, const RunResult& run) {
  EXPECT_THAT(run.log, IsEmpty());
  EXPECT_THAT(run.invocations, IsEmpty());
  EXPECT_EQ(run.standard_output, "");
  EXPECT_FALSE(box.Exists("/volume1/photo/@eaDir"));
  EXPECT_THAT(box.List("/var/spool"), IsEmpty());
}

TEST(CommandLineTest, TooFewArgumentsDoNothing) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"keldothumb"}, {"keldothumb", "/conf/profile"}}) {
    Sandbox box;
    box.AddPhoto("a.jpg");
    box.Write("/var/run/keldothumb.4242.pid", "4242\n");
    const RunResult run = box.Run(arguments);
    EXPECT_EQ(run.exit_status, 1);
    EXPECT_EQ(run.standard_error, "");
    EXPECT_FALSE(box.Exists(kPidFile));
    EXPECT_TRUE(box.Exists("/var/run/keldothumb.4242.pid"));
    ExpectNothingDone(box, run);
  }
}

TEST(CommandLineTest, MakesThumbnailsAndEndsWithZero) {
  Sandbox box;
  box.AddPhoto("a.jpg");
  const RunResult run = box.RunOn();
  EXPECT_EQ(run.exit_status, 0);
  EXPECT_EQ(run.standard_output, "");
  EXPECT_EQ(run.standard_error, "");
  EXPECT_THAT(run.survivors, IsEmpty());
  EXPECT_FALSE(box.Exists(kPidFile));
  EXPECT_EQ(box.List(MetadataOf("a.jpg")), ThumbNames("XL B M L SM"));
}

TEST(CommandLineTest, PidFileHoldsThePidWhileTheProgramRuns) {
  Sandbox box;
  box.AddPhoto("a.jpg");
  box.Script("convert-thumb", "stdout-file /var/run/keldothumb.pid\noutputs jpeg\n");
  const RunResult run = box.RunOn();
  EXPECT_EQ(run.standard_output, "2\n2\n") << "the program is the sandbox's second process";
}

TEST(CommandLineTest, PidFileOfAnEarlierRunIsReplaced) {
  Sandbox box;
  box.Write("/var/run/victim", "precious\n");
  std::filesystem::create_symlink("/run/victim", box.Outside(kPidFile));
  EXPECT_EQ(box.RunOn().exit_status, 0);
  EXPECT_EQ(box.Read("/var/run/victim"), "precious\n");
  EXPECT_FALSE(box.Exists(kPidFile));
}

TEST(CommandLineTest, SweepsStalePidFilesOnly) {
  Sandbox box;
  for (const char* token : {"4242", "1", "x", "0", "4243.old"}) {
    box.Write("/var/run/keldothumb." + std::string(token) + ".pid", "");
  }
  box.Write("/var/run/other.4242.pid", "");
  const RunResult run = box.RunOn();
  EXPECT_THAT(run.log, IsEmpty());
  EXPECT_THAT(box.List("/var/run/"), ElementsAre("keldothumb.0.pid", "keldothumb.1.pid",
                                                 "keldothumb.x.pid", "other.4242.pid"));
}

TEST(CommandLineTest, LogsAPidFileThatCannotBeRemoved) {
  Sandbox box;
  box.MakeDirectory("/var/run/keldothumb.4242.pid");
  box.Write("/var/run/keldothumb.4243.pid", "");
  const RunResult run = box.RunOn();
  EXPECT_EQ(run.exit_status, 0);
  EXPECT_THAT(run.log, ElementsAre(ErrorLine("keldothumb: KillThumbProcesses(1214) - "
                                             "unlink(/var/run/keldothumb.4242.pid), "
                                             "Is a directory\n")));
  EXPECT_THAT(box.List("/var/run/"), ElementsAre("keldothumb.4242.pid"));
}

TEST(CommandLineTest, DirectoriesGetExactModes) {
  Sandbox box;
  box.AddPhoto("a.jpg");
  const RunResult run = box.RunOn();
  EXPECT_EQ(box.Status("/volume1/photo/@eaDir").st_mode, S_IFDIR | 0777U);
  EXPECT_EQ(box.Status(MetadataOf("a.jpg")).st_mode, S_IFDIR | 0777U);
  for (const char* kind : {"XL", "B", "M", "L", "SM"}) {
    EXPECT_EQ(box.Status(ThumbOf("a.jpg", kind)).st_mode, S_IFREG | 0644U);
  }
  EXPECT_EQ(box.Status("/var/spool/thumb_create.queue").st_mode, S_IFREG | 0644U);
  EXPECT_EQ(box.Status("/var/spool/conv_progress_photo").st_mode, S_IFREG | 0644U);
}

TEST(CommandLineTest, TargetsAreProcessedFromLeftToRight) {
  Sandbox box;
  box.Write("/volume1/z/1.jpg", "x");
  box.Write("/volume1/a/2.jpg", "x");
  box.Write("/volume1/m/3.png", "x");
  // Photos that are not valid images: JPEG ones would never get to the converter.
  const RunResult run = box.RunOn({"/volume1/z", "/volume1/none", "/volume1/a", "/volume1/m"});
  EXPECT_EQ(run.exit_status, 0);
  EXPECT_EQ(box.List("/volume1/z/@eaDir/1.jpg").size(), 6U);
  EXPECT_EQ(box.List("/volume1/a/@eaDir/2.jpg").size(), 6U);
  ASSERT_EQ(run.invocations.size(), 2U);
  EXPECT_EQ(run.invocations[0].arguments.at(3), "/volume1/m/3.png");
}

TEST(CommandLineTest, QueueKeepsTheOrderOfTargets) {
  Sandbox box;
  for (const char* path : {"/volume1/z/1.png", "/volume1/a/2.png", "/volume1/m/3.png"}) {
    box.Write(path, "x");
  }
  EXPECT_EQ(box.RunOn({"/volume1/z", "/volume1/a", "/volume1/m"}).exit_status, 0);
  EXPECT_THAT(QueuedDirectories(box), ElementsAre("/volume1/z", "/volume1/a", "/volume1/m"));
}

TEST(CommandLineTest, MissingTargetsAndProfilesAreSkippedSilently) {
  Sandbox box;
  box.AddPhoto("a.jpg");
  const RunResult no_target = box.RunOn({"/volume1/none", "/volume1/photo/none.jpg", ""});
  EXPECT_EQ(no_target.exit_status, 0);
  EXPECT_EQ(no_target.standard_error, "");
  ExpectNothingDone(box, no_target);

  const RunResult no_profile = box.Run({"keldothumb", "/conf/none", kPhotoDir});
  EXPECT_EQ(no_profile.exit_status, 0);
  EXPECT_EQ(no_profile.standard_error, "");
  ExpectNothingDone(box, no_profile);
}

TEST(CommandLineTest, BrokenProfileIsLoggedForEveryTarget) {
  Sandbox box;
  box.AddPhoto("a.jpg");
  box.UseProfile("[thumb_s\nnot a profile\n");
  const RunResult run = box.RunOn({kPhotoDir, kPhotoDir});
  EXPECT_EQ(run.exit_status, 0);
  EXPECT_EQ(run.standard_error, "Failed to parse /conf/profileFailed to parse /conf/profile");
  ExpectNothingDone(box, run);
}

TEST(CommandLineTest, ProfileThatIsADirectoryCannotBeParsed) {
  Sandbox box;
  box.AddPhoto("a.jpg");
  const RunResult run = box.Run({"keldothumb", "/conf", kPhotoDir});
  EXPECT_EQ(run.exit_status, 0);
  EXPECT_EQ(run.standard_error, "Failed to parse /conf");
  ExpectNothingDone(box, run);
}

TEST(CommandLineTest, ProfileIsReadAgainForEveryTarget) {
  Sandbox box;
  box.UseProfile("[thumb_1]\nfilename=keldophoto_thumb_s.jpg\n");
  const LogLine line =
      ErrorLine("keldomk_util:118 [Error] invalid thumb filename: keldophoto_thumb_s.jpg");
  EXPECT_THAT(box.RunOn({kPhotoDir, kPhotoDir}).log, ElementsAre(line, line));
}

TEST(CommandLineTest, RecursiveArgumentEndsAtTheNextColon) {
  Sandbox box;
  box.Write("/volume1/a/1.png", "x");
  box.Write("/volume1/a:b/2.png", "x");
  const RunResult run = box.RunOn({"R:/volume1/a:b"});
  EXPECT_EQ(run.exit_status, 0);
  EXPECT_TRUE(box.Exists("/volume1/a/@eaDir/1.png"));
  EXPECT_FALSE(box.Exists("/volume1/a:b/@eaDir"));
}

TEST(CommandLineTest, EmptyRecursiveArgumentDoesNothing) {
  Sandbox box;
  for (const char* argument : {"R:", "R::", "R:/volume1/none"}) {
    const RunResult run = box.RunOn({argument});
    EXPECT_EQ(run.exit_status, 0) << argument;
    EXPECT_EQ(run.signal, 0) << argument;
    EXPECT_EQ(run.standard_error, "");
    ExpectNothingDone(box, run);
  }
}

TEST(CommandLineTest, LowerCasePrefixIsAPlainPath) {
  Sandbox box;
  box.AddPhoto("a.jpg");
  const RunResult run = box.RunOn({"r:/volume1/photo"});
  EXPECT_EQ(run.exit_status, 0);
  ExpectNothingDone(box, run);
}

TEST(CommandLineTest, TargetThatIsAFileYieldsAnEmptyListing) {
  Sandbox box;
  const std::string photo = box.AddPhoto("a.jpg");
  const RunResult run = box.RunOn({photo});
  EXPECT_EQ(run.exit_status, 0);
  ASSERT_EQ(run.log.size(), 1U);
  EXPECT_EQ(run.log[0].priority, 3);
  EXPECT_THAT(run.log[0].text,
              ::testing::MatchesRegex("[a-z_]+:[0-9]+ .Error. opendir: /volume1/photo/a.jpg"));
  EXPECT_THAT(run.invocations, IsEmpty());
  EXPECT_THAT(box.List(kPhotoDir), ElementsAre("a.jpg"));
}

TEST(CommandLineTest, OverlongTargetIsTruncatedWithoutHarm) {
  Sandbox box;
  box.AddPhoto("a.jpg");
  const RunResult run =
      box.RunOn({std::string(6000, 'x'), "R:" + std::string(6000, '/'), kPhotoDir});
  EXPECT_EQ(run.exit_status, 0);
  EXPECT_TRUE(box.Exists(ThumbOf("a.jpg", "XL")));
}

}  // namespace
}  // namespace keldo::testing
