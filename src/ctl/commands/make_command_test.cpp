// make and retry by their command lines, with a program that stands in for keldothumb.
#include <json/value.h>

#include <chrono>

#include "ctl/library/library_test_support.h"
#include "ctl/make/make_report.h"
#include "util/json_line.h"

namespace keldo::ctl {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

constexpr const char* kAllKinds =
    "[thumb_s]\nsize=120\nfilename=KELDOPHOTO_THUMB_S.jpg\nphase=2\n"
    "[thumb_m]\nsize=320\nquality=70\nunsharp=0.5x0.5+1.25+0\nfilename=KELDOPHOTO_THUMB_M.jpg\n"
    "[thumb_xl]\nsize=1280\nfilename=KELDOPHOTO:THUMB_XL.jpg\nphase=0\n";

class MakeCommandTest : public LibraryTest {
 protected:
  MakeCommandTest() {
    Write(profile_, kAllKinds);
    // Makes what the profile file names, for all photos except those called bad.
    Program(R"sh(cp "$1" "$(dirname "$0")/used.conf"
for path in "$2"/*.jpg; do
  photo=$(basename "$path"); mkdir -p "$2/@eaDir/$photo"; rm -f "$2/@eaDir/$photo"/*.fail
  for kind in $(sed -n 's/^filename=KELDOPHOTO.THUMB_\(.*\).jpg/\1/p' "$1"); do
    case $photo in
      bad*) [ ! -e "$(dirname "$0")/cured" ] || { echo x >"$2/@eaDir/$photo/KELDOPHOTO_THUMB_$kind.jpg"; continue; }
            : >"$2/@eaDir/$photo/KELDOPHOTO_THUMB_$kind.fail" ;;
      *) echo x >"$2/@eaDir/$photo/KELDOPHOTO_THUMB_$kind.jpg" ;;
    esac
  done
done
)sh");
  }
  void Program(const std::string& script) const {
    Write(environment_.keldothumb, "#!/bin/sh\n" + script);
    ASSERT_EQ(chmod(environment_.keldothumb.c_str(), 0755), 0);
  }
  [[nodiscard]] Texts Command(Texts arguments) const {
    arguments.insert(arguments.end(), {"--profile", profile_, root_});
    return arguments;
  }
  [[nodiscard]] bool WasRun() const { return std::filesystem::exists(dir_.path() + "/used.conf"); }

  const std::string profile_ = dir_.path() + "/thumb.conf";
};

TEST_F(MakeCommandTest, MakesWhatIsMissingAndSaysSo) {
  Photo("a/x.jpg");
  Photo("b/y.jpg");
  EXPECT_THAT(Run(Command({"make"})), HasSubstr("Photos:     2 in 2 folders\n"
                                                "Thumbnails: 6 made, 6 present now\n"
                                                "Time:       "));
  EXPECT_THAT(Run(Command({"make"})), HasSubstr("0 made, 6 present now"));
  EXPECT_EQ(Run(Command({"make", "-q"})), "");
}

TEST_F(MakeCommandTest, ReportsAFailureWithItsReasonUntilRetried) {
  Photo("a/bad.jpg", "");
  Photo("a/good.jpg");
  const std::string failed = "Failed:\n  " + In("a/bad.jpg") + ": is empty\n";
  EXPECT_THAT(Run(Command({"make"}), 1), HasSubstr(failed));
  std::filesystem::remove(dir_.path() + "/used.conf");
  EXPECT_THAT(Run(Command({"make"}), 1), HasSubstr(failed));
  EXPECT_FALSE(WasRun());
  EXPECT_EQ(Run(Command({"make", "-q"}), 1), failed);

  EXPECT_THAT(Run(Command({"retry"}), 1), HasSubstr(failed));
  EXPECT_TRUE(WasRun());
  Write(dir_.path() + "/cured", "");
  EXPECT_THAT(Run(Command({"retry"})), HasSubstr("3 made, 6 present now"));
}

TEST_F(MakeCommandTest, RetryAlsoMakesWhatIsMissing) {
  Photo("a/x.jpg");
  EXPECT_THAT(Run(Command({"retry"})), HasSubstr("3 made, 3 present now"));
}

TEST_F(MakeCommandTest, MakesSelectedKindsInOnePhase) {
  Photo("a/x.jpg");
  EXPECT_THAT(Run(Command({"make", "--only-missing-kinds", "xl,m"})),
              HasSubstr("2 made, 2 present"));
  EXPECT_EQ(Read(dir_.path() + "/used.conf"),
            "[thumb_m]\nphase=0\nsize=320\nquality=70\nunsharp=0.5x0.5+1.25+0\n"
            "filename=KELDOPHOTO_THUMB_M.jpg\n"
            "[thumb_xl]\nphase=0\nsize=1280\nfilename=KELDOPHOTO:THUMB_XL.jpg\n");
  EXPECT_EQ(Status(Command({"make", "--only-missing-kinds", "L"})), 1);
  EXPECT_EQ(errors_, "keldothumbctl: " + profile_ + ": has none of these kinds\n");
}

TEST_F(MakeCommandTest, PrintsTheSameAsJson) {
  Photo("a/bad.jpg", "");
  Photo("a/good.jpg");
  Json::Value value;
  ASSERT_TRUE(ParseJsonObject(Run(Command({"make", "--json"}), 1), value)) << output_;
  EXPECT_EQ(value["photos"], 2);
  EXPECT_EQ(value["thumbnails"], 3);
  EXPECT_EQ(value["thumbnails_made"], 3);
  EXPECT_EQ(value["stopped"], false);
  EXPECT_EQ(value["failed"][0]["path"], In("a/bad.jpg"));
  EXPECT_EQ(value["failed"][0]["reason"], "is empty");
  EXPECT_EQ(value["unfinished"].size(), 0U);
}

TEST_F(MakeCommandTest, ReportsUnfinishedPhotosWithTheReason) {
  Photo("a/x.jpg", "");
  Program("exit 0");
  EXPECT_THAT(Run(Command({"make"}), 1),
              HasSubstr("Not finished:\n  " + In("a/x.jpg") + ": is empty"));
}

TEST_F(MakeCommandTest, ReportsAProgramThatCannotBeStarted) {
  Photo("a/x.jpg");
  std::filesystem::remove(environment_.keldothumb);
  EXPECT_EQ(Status(Command({"make"})), 1);
  EXPECT_THAT(errors_,
              HasSubstr(environment_.keldothumb + " cannot be started: No such file or directory"));
}

TEST_F(MakeCommandTest, ReportsAnInterrupt) {
  Photo("a/x.jpg");
  // Interrupts its parent, as Ctrl-C does.
  Program("kill -INT $PPID; exec sleep 1000");
  EXPECT_EQ(Status(Command({"make"})), 1);
  EXPECT_EQ(errors_, "keldothumbctl: stopped; 1 photo left undone\n");
  EXPECT_THAT(output_, Not(HasSubstr("Not finished")));
}

TEST(ProgressTextTest, ShowsProgressSpeedAndTimeLeft) {
  MakeProgress progress;
  progress.photos_total = 1;
  progress.thumbs_total = 600;
  EXPECT_EQ(ProgressText(progress), "0 of 1 photo, 0 failed");
  progress.photos_total = 1200;
  progress.photos_done = 300;
  progress.photos_failed = 2;
  progress.thumbs_made = 100;
  progress.elapsed = std::chrono::seconds(10);
  EXPECT_EQ(ProgressText(progress), "300 of 1,200 photos, 2 failed, 10.0 thumbnails/s, 50 s left");
  progress.folders_locked = 1;
  EXPECT_THAT(ProgressText(progress), HasSubstr("2 failed, 1 folder in use by another run, 10.0"));
  progress.folders_locked = 0;
  progress.thumbs_total = 90;
  EXPECT_THAT(ProgressText(progress), HasSubstr(", 0 s left"));
  progress.thumbs_total = 6100;
  EXPECT_THAT(ProgressText(progress), HasSubstr("10 min left"));
  progress.thumbs_total = 100100;
  EXPECT_THAT(ProgressText(progress), HasSubstr("2 h 46 min left"));
}

TEST(ProgressLineTest, IsRewrittenOnATerminalAndPrintedRarelyElsewhere) {
  std::ostringstream out;
  std::ostringstream err;
  Console console(out, err);
  MakeProgress progress;
  progress.elapsed = std::chrono::seconds(9);
  ProgressLine plain(console);
  plain.Show(progress);
  EXPECT_EQ(err.str(), "");
  progress.elapsed = std::chrono::seconds(10);
  plain.Show(progress);
  plain.Show(progress);
  plain.Clear();
  EXPECT_EQ(err.str(), "0 of 0 photos, 0 failed\n");

  err.str("");
  console.set_style({false, true, false, false});
  ProgressLine live(console);
  live.Show(progress);
  live.Show(progress);
  live.Clear();
  EXPECT_EQ(err.str(), "\r\033[K0 of 0 photos, 0 failed\r\033[K0 of 0 photos, 0 failed\r\033[K");
  EXPECT_EQ(out.str(), "");
}

TEST_F(MakeCommandTest, ReportsAProgramThatCrashes) {
  Photo("a/x.jpg", "");
  Program("kill -SEGV $$");
  EXPECT_EQ(Status(Command({"make"})), 1);
  EXPECT_EQ(errors_, "keldothumbctl: " + In("a") +
                         ": keldothumb was killed by signal 11 (Segmentation fault)\n");
}

}  // namespace
}  // namespace keldo::ctl
