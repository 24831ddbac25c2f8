#include "ctl/commands/doctor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/value.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "ctl/library/command_test_support.h"
#include "index/index_database.h"
#include "support/temp_dir.h"
#include "util/json_line.h"

namespace keldo::ctl {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using Level = CheckResult::Level;

class Doctor : public ::testing::Test {
 protected:
  Doctor() {
    Program("keldothumb", "exit 1");
    Converter("Version: ImageMagick 6.9.11-60 Q16 x86_64 2021-01-25 https://imagemagick.org",
              "     HEIC* HEIC      rw+   High efficiency", "  Width: 16KP\n  Disk: 1GiB");
    Program("djpeg",
            "case $1 in -version) echo 'libjpeg-turbo version 2.1.5' >&2;;"
            "*) echo '  -icc FILE      Extract ICC profile to FILE' >&2; exit 1;; esac");
    Program("dcraw", "echo; echo 'Raw photo decoder \"dcraw\" v9.28'; exit 1");
    Program("compare", "echo 'Version: ImageMagick 7.1.1-15 Q16'");
    WriteFile(paths_.profile,
              "[other]\nsize=1\n[thumb_xl]\nfilename=KELDOPHOTO_THUMB_XL.jpg\n"
              "[thumb_s]\nfilename=KELDOPHOTO:THUMB_S.jpg\n");
    WriteFile(paths_.watch_limit, "192536\n");
  }

  [[nodiscard]] std::string In(const std::string& name) const { return dir_.path() + "/" + name; }
  void Program(const std::string& name, const std::string& script) const {
    WriteFile(In(name), "#!/bin/sh\n" + script + "\n");
    ASSERT_EQ(chmod(In(name).c_str(), 0755), 0);
  }
  void Converter(const std::string& version, const std::string& formats,
                 const std::string& resources) const {
    Program("convert", "case $2 in '') echo '" + version + "';; format) echo '" + formats +
                           "';; resource) echo '" + resources + "';; esac");
  }
  // What a check found.
  CheckResult Find(const std::string& name) const {
    for (const auto& results : {CheckPrograms(paths_), CheckSystem(paths_)}) {
      const auto found = std::find_if(results.begin(), results.end(),
                                      [&](const auto& result) { return result.name == name; });
      if (found != results.end()) return *found;
    }
    return {};
  }
  Level LevelOf(const std::string& name) const {
    const CheckResult result = Find(name);
    EXPECT_EQ(result.name, name);
    EXPECT_EQ(result.level == Level::kOk, result.advice.empty()) << name;
    return result.level;
  }
  int Run(bool json = false, ConsoleStyle style = {}) {
    std::ostringstream out;
    std::ostringstream err;
    Console console(out, err);
    console.set_style(style);
    const int status = RunDoctor(paths_, json, console);
    output_ = out.str();
    EXPECT_EQ(err.str(), "");
    return status;
  }

  testing::TempDir dir_;
  DoctorPaths paths_{.keldothumb = In("keldothumb"),
                     .profile = In("thumb.conf"),
                     .database = In("index.db"),
                     .converter = In("convert"),
                     .djpeg = In("djpeg"),
                     .dcraw = In("dcraw"),
                     .compare = In("compare"),
                     .queue = In("queue"),
                     .progress = In("progress"),
                     .pid_file = In("pid"),
                     .daemon_socket = In("socket"),
                     .watch_limit = In("watches"),
                     .deadline = std::chrono::seconds(30)};
  std::string output_;
};

TEST_F(Doctor, FindsNoProblemWhenNothingIsMissing) {
  EXPECT_EQ(Run(), 0);
  EXPECT_THAT(output_, Not(HasSubstr("problem")));
  for (const char* text :
       {"convert, ImageMagick 6.9.11-60\n", "djpeg, libjpeg-turbo version 2.1.5\n",
        "dcraw, Raw photo decoder \"dcraw\" v9.28\n", "compare, ImageMagick 7.1.1-15\n",
        "thumb.conf: XL, S\n", "192,536 per user\n", "the converter reads them\n"}) {
    EXPECT_THAT(output_, HasSubstr(text));
  }
  EXPECT_EQ(LevelOf("libheif"), Level::kOk);
  EXPECT_EQ(LevelOf("LibRaw"), Level::kOk);
  EXPECT_EQ(LevelOf("index"), Level::kNote);
  EXPECT_EQ(LevelOf("daemon"), Level::kNote);
  EXPECT_EQ(LevelOf("work queue"), Level::kOk);
}

TEST_F(Doctor, ReportsMissingProgramsAsProblems) {
  for (const char* name : {"keldothumb", "convert", "thumb.conf"}) {
    std::filesystem::rename(In(name), In("away"));
    EXPECT_EQ(Run(), 1) << name;
    EXPECT_THAT(output_, HasSubstr(": " + In(name) + ": "));
    EXPECT_THAT(output_, HasSubstr("problem  "));
    EXPECT_THAT(output_, HasSubstr("What to do:\n  "));
    std::filesystem::rename(In("away"), In(name));
  }
  EXPECT_EQ(Run(), 0);
}

TEST_F(Doctor, WarnsOfWhatOnlySomePhotosNeed) {
  for (const char* name : {"djpeg", "dcraw", "compare"}) {
    std::filesystem::rename(In(name), In("away"));
    EXPECT_EQ(LevelOf(name), Level::kWarning);
    EXPECT_EQ(Find(name).text, In(name) + ": is missing");
    EXPECT_EQ(Run(), 0);
    std::filesystem::rename(In("away"), In(name));
  }
  ASSERT_EQ(chmod(In("dcraw").c_str(), 0644), 0);
  EXPECT_EQ(Find("dcraw").text, In("dcraw") + ": cannot be executed");
}

TEST_F(Doctor, ReportsProgramsThatDoNotWork) {
  Program("keldothumb", "exit 127");
  EXPECT_EQ(LevelOf("keldothumb"), Level::kProblem);
  Program("convert", "exit 1");
  EXPECT_EQ(LevelOf("converter"), Level::kProblem);
  Program("convert", "exec sleep 60");
  paths_.deadline = std::chrono::milliseconds(100);
  EXPECT_EQ(Find("converter").text, In("convert") + ": cannot be run: does not come to an end");
  Program("djpeg", "echo '  -icc FILE'; exec sleep 60");
  EXPECT_EQ(LevelOf("djpeg"), Level::kWarning);
}

TEST_F(Doctor, WarnsOfAConverterWithoutHeicOrWithLowLimits) {
  Converter("Version: ImageMagick 6.9.11-60 Q16", "     JPEG* JPEG      rw-   HEIC photos",
            "  Width: 16KP\n  Height: 8KP");
  EXPECT_EQ(LevelOf("HEIC photos"), Level::kWarning);
  EXPECT_EQ(LevelOf("converter limits"), Level::kWarning);
  Converter("Version: ImageMagick 6.9.11-60 Q16", "     HEIC* HEIC      -w+   High efficiency",
            "  Width: 16KP\n  Disk: 512MiB");
  EXPECT_EQ(LevelOf("HEIC photos"), Level::kWarning);
  EXPECT_EQ(LevelOf("converter limits"), Level::kWarning);
  Converter("Version: ImageMagick 6.9.11-60 Q16", "     HEIC  HEIC      r--   High efficiency",
            "  Width: unlimited\n  Height: 1.2MP\n  Disk: 2GiB");
  EXPECT_EQ(LevelOf("HEIC photos"), Level::kOk);
  EXPECT_EQ(LevelOf("converter limits"), Level::kOk);
}

TEST_F(Doctor, TellsOurConverterFromImageMagick) {
  Converter("convert-thumb 0.1.0\nFormats: JPEG HEIC", "", "");
  EXPECT_EQ(Find("converter").text, In("convert") + ", our own: convert-thumb 0.1.0");
  EXPECT_EQ(Find("converter limits").name, "");
  EXPECT_EQ(LevelOf("HEIC photos"), Level::kOk);
  Converter("convert-thumb 0.1.0\nFormats: JPEG", "     HEIC  HEIC      r--   x", "");
  EXPECT_EQ(LevelOf("HEIC photos"), Level::kWarning);
}

TEST_F(Doctor, WarnsOfADjpegThatCannotExtractProfiles) {
  Program("djpeg", "echo 'Independent JPEG Group'");
  EXPECT_EQ(LevelOf("djpeg"), Level::kWarning);
}

TEST_F(Doctor, AProfileFileWithoutThumbnailsIsAProblem) {
  WriteFile(paths_.profile, "[other]\nsize=1\n");
  EXPECT_EQ(LevelOf("profile file"), Level::kProblem);
  WriteFile(paths_.profile, "no profile file\n");
  EXPECT_EQ(LevelOf("profile file"), Level::kProblem);
}

TEST_F(Doctor, WarnsOfWhatCannotBeWritten) {
  paths_.queue = In("none/queue");
  paths_.progress = In("none/progress");
  paths_.pid_file = In("none/pid");
  for (const char* name : {"work queue", "counters", "pid file"})
    EXPECT_EQ(LevelOf(name), Level::kWarning);
  EXPECT_EQ(Run(), 0);
}

TEST_F(Doctor, OpensTheIndex) {
  ASSERT_TRUE(index::IndexDatabase::OpenOrCreate(paths_.database).database);
  EXPECT_EQ(LevelOf("index"), Level::kOk);
  WriteFile(paths_.database, std::string(5000, 'x'));
  EXPECT_EQ(LevelOf("index"), Level::kWarning);
}

TEST_F(Doctor, WarnsOfFewWatches) {
  WriteFile(paths_.watch_limit, "8192\n");
  EXPECT_EQ(LevelOf("inotify watches"), Level::kWarning);
}

TEST_F(Doctor, WarnsOfALibraryThatCannotBeLoaded) {
  paths_.heif_library = "libnone.so.1";
  EXPECT_EQ(LevelOf("libheif"), Level::kWarning);
}

TEST_F(Doctor, PrintsTheSameAsJson) {
  std::filesystem::remove(In("convert"));
  EXPECT_EQ(Run(/*json=*/true), 1);
  Json::Value value;
  ASSERT_TRUE(ParseJsonObject(output_, value)) << output_;
  EXPECT_EQ(value["checks"][0]["name"], "keldothumb");
  EXPECT_EQ(value["checks"][0]["level"], "ok");
  EXPECT_EQ(value["checks"][1]["name"], "converter");
  EXPECT_EQ(value["checks"][1]["level"], "problem");
  EXPECT_NE(value["checks"][1]["advice"], "");
}

TEST_F(Doctor, PrintsOnlyProblemsWhenQuiet) {
  EXPECT_EQ(Run(false, {.quiet = true}), 0);
  EXPECT_EQ(output_, "");
}

TEST_F(Doctor, EscapesNamesForTheTerminal) {
  paths_.keldothumb = In("-%s\033[31m\xFF");
  EXPECT_EQ(Run(), 1);
  EXPECT_THAT(output_, HasSubstr(In("-%s\\x1b[31m\\xff") + ": is missing"));
}

}  // namespace
}  // namespace keldo::ctl
