#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/value.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

#include "ctl/library/command_test_support.h"
#include "ctl/library/photo_scan.h"
#include "support/temp_dir.h"
#include "util/handles.h"
#include "util/json_line.h"

namespace keldo::ctl {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr time_t kOld = 1'600'000'000;
constexpr time_t kNew = 1'700'000'000;
const std::string kOddName("-2024 %s [1]\xFF\n.JPG");

class CleanCommand : public ::testing::Test {
 protected:
  CleanCommand() { fs::create_directories(photos_); }

  void Photo(const std::string& name, time_t time = kOld) {
    WriteFile(photos_ + "/" + name, "photo " + name);
    SetTime(photos_ + "/" + name, time);
  }
  std::string Metadata(const std::string& photo, const std::string& file,
                       const std::string& content = "thumb", time_t time = kNew) {
    const std::string path = Of(photo) + "/" + file;
    WriteFile(path, content);
    SetTime(path, time);
    return path;
  }
  // Changes a photo, but not its content, so that the file system dates the change later than a
  // marker. Its clock advances by some milliseconds at a time.
  void ChangeAfter(const std::string& photo, const std::string& marker) {
    struct stat photo_status {};
    struct stat marker_status {};
    ASSERT_EQ(stat((Of(photo) + "/" + marker).c_str(), &marker_status), 0);
    do {
      ASSERT_EQ(chmod((photos_ + "/" + photo).c_str(), 0644), 0);
      ASSERT_EQ(stat((photos_ + "/" + photo).c_str(), &photo_status), 0);
    } while (!IsMarkerOutdated(photo_status, marker_status));
  }
  [[nodiscard]] std::string Of(const std::string& photo) const {
    return photos_ + "/@eaDir/" + photo;
  }
  int Clean(std::vector<std::string> options = {}) {
    options.insert(options.begin(), "clean");
    options.push_back(photos_);
    return runner_.Run(options);
  }
  Json::Value CleanJson(std::vector<std::string> options = {}) {
    options.emplace_back("--json");
    EXPECT_EQ(Clean(options), 0) << runner_.errors;
    Json::Value value;
    EXPECT_TRUE(ParseJsonObject(runner_.output, value)) << runner_.output;
    return value;
  }

  testing::TempDir dir_;
  std::string photos_ = dir_.path() + "/photos";
  CommandRunner runner_;
};

TEST_F(CleanCommand, RemovesTheMetadataDirectoryOfADeletedPhoto) {
  Photo("here.jpg");
  Metadata("here.jpg", "KELDOPHOTO_THUMB_S.jpg");
  for (const char* name :
       {"KELDOPHOTO_THUMB_S.jpg", "KELDOPHOTO:THUMB_XL.jpg", "KELDOPHOTO_THUMB_SM.fail",
        "KELDOPHOTO:THUMB_B.fail", "KELDOPHOTO.tmp.Ab3dEf.jpg", "KELDOPHOTO_PROFILE.icc",
        "KELDOPHOTO_RAW_TEMP.ppm", "KELDOPHOTO_THUMB_RAW.jpg", "Temp_270.jpg"}) {
    Metadata(kOddName, name);
  }
  EXPECT_EQ(Clean({"--force"}), 0) << runner_.errors;
  EXPECT_EQ(runner_.errors, "");
  EXPECT_FALSE(fs::exists(Of(kOddName)));
  EXPECT_TRUE(fs::exists(Of("here.jpg") + "/KELDOPHOTO_THUMB_S.jpg"));
  EXPECT_EQ(runner_.output, "Photos that no longer exist:\n  " + photos_ +
                                "/@eaDir/-2024 %s [1]\\xff\\n.JPG: 9 files, 45 bytes\n"
                                "Removed 9 files, 45 bytes.\n");
}

TEST_F(CleanCommand, ChangesNothingWithoutForce) {
  Metadata("gone.jpg", "KELDOPHOTO_THUMB_S.jpg");
  Photo("a.jpg");
  Metadata("a.jpg", "KELDOPHOTO.tmp.Ab3dEf.jpg");
  Metadata("a.jpg", "KELDOPHOTO_THUMB_S.fail", "");
  ChangeAfter("a.jpg", "KELDOPHOTO_THUMB_S.fail");
  const auto before = Snapshot(dir_.path());
  EXPECT_EQ(Clean(), 0);
  EXPECT_EQ(Snapshot(dir_.path()), before);
  const std::string metadata = "  " + photos_ + "/@eaDir/";
  EXPECT_EQ(runner_.output,
            "Photos that no longer exist:\n" + metadata + "gone.jpg: 1 file, 5 bytes\n" +
                "Left behind by interrupted runs:\n" + metadata +
                "a.jpg/KELDOPHOTO.tmp.Ab3dEf.jpg\n" + "Outdated failure markers:\n" + metadata +
                "a.jpg/KELDOPHOTO_THUMB_S.fail\n" +
                "3 files, 10 bytes in total; run again with --force to remove them\n");
}

TEST_F(CleanCommand, RemovesADeletedPhotosEmptyDirectoryButNotTheCommonOne) {
  fs::create_directories(Of("gone.jpg"));
  EXPECT_EQ(Clean({"--force"}), 0);
  EXPECT_TRUE(fs::is_directory(photos_ + "/@eaDir"));
  EXPECT_TRUE(fs::is_empty(photos_ + "/@eaDir"));
}

TEST_F(CleanCommand, KeepsTheMetadataOfAnythingThatExists) {
  Photo("photo.jpg");
  fs::create_symlink("nowhere", photos_ + "/dangling.jpg");
  fs::create_symlink("loop.jpg", photos_ + "/loop.jpg");
  fs::create_directory(photos_ + "/folder.jpg");
  mkfifo((photos_ + "/pipe.jpg").c_str(), 0644);
  for (const char* name : {"photo.jpg", "dangling.jpg", "loop.jpg", "folder.jpg", "pipe.jpg"})
    Metadata(name, "KELDOPHOTO_THUMB_S.jpg");
  const auto before = Snapshot(dir_.path());
  EXPECT_EQ(Clean({"--force"}), 0);
  EXPECT_EQ(runner_.output, "Nothing to clean up.\n");
  EXPECT_EQ(Snapshot(dir_.path()), before);
}

TEST_F(CleanCommand, NeverTouchesForeignFiles) {
  const std::string outside = dir_.path() + "/outside";
  WriteFile(outside + "/KELDOPHOTO_THUMB_S.jpg", "outside");
  WriteFile(outside + "/@eaDir/gone.jpg/KELDOPHOTO_THUMB_S.jpg", "outside");
  WriteFile(outside + "/KELDOPHOTO.tmp.Ab3dEf.jpg", "outside");

  // This is not metadata of photos.
  for (const char* name : {"film.mp4", "notes.txt", "._a.jpg", "folder", "a.jpg@stream"})
    Metadata(name, "KELDOPHOTO_THUMB_S.jpg");
  WriteFile(photos_ + "/@eaDir/KELDOPHOTO_THUMB_S.jpg", "file of the directory");
  WriteFile(photos_ + "/@eaDir/file.jpg", "a file, no directory");
  fs::create_symlink(outside, photos_ + "/@eaDir/link.jpg");
  WriteFile(photos_ + "/KELDOPHOTO_THUMB_S.jpg", "a photo of that name");
  WriteFile(photos_ + "/KELDOPHOTO.tmp.Ab3dEf.jpg", "a photo of that name");
  fs::create_symlink(outside, photos_ + "/linked");
  fs::create_directory(photos_ + "/sub");
  fs::create_symlink(outside + "/@eaDir", photos_ + "/sub/@eaDir");
  WriteFile(photos_ + "/sub2/@eaDir", "a file of that name");

  // In the metadata of a photo that exists, and of one that is gone.
  Photo("here.jpg");
  for (const char* photo : {"here.jpg", "gone.jpg"}) {
    for (const char* name :
         {"notes.txt", "KELDOPHOTO_THUMB_S.jpg.bak", "keldophoto_thumb_s.jpg",
          "KELDOPHOTO_THUMB_XXL.jpg", "KELDOPHOTO-THUMB_S.jpg", "KELDOPHOTO_THUMB_S.failed",
          "KELDOPHOTO_FILM_M.mp4", "KELDOPHOTO.tmp.", "KELDOPHOTO.tmp.Ab3dE", "Temp_45.jpg",
          "KELDOPHOTO.tmp.Ab3d.f.jpg", "KELDOPHOTO.tmp.Ab3dEf.txt", "KELDOPHOTO.tmp.Ab3dEf.jpg~",
          "xKELDOPHOTO.tmp.Ab3dEf.jpg", "KELDOPHOTO.tmp.Ab3dEf-.jpg", "PROFILE.icc"}) {
      Metadata(photo, name);
    }
    fs::create_directories(Of(photo) + "/KELDOPHOTO_THUMB_M.jpg");
    Metadata(photo, "KELDOPHOTO.tmp.Xb3dEf.jpg/KELDOPHOTO_THUMB_S.jpg");
    fs::create_symlink(outside + "/KELDOPHOTO_THUMB_S.jpg", Of(photo) + "/KELDOPHOTO_THUMB_L.jpg");
    fs::create_symlink(outside, Of(photo) + "/KELDOPHOTO_THUMB_XL.fail");
    mkfifo((Of(photo) + "/KELDOPHOTO_THUMB_B.jpg").c_str(), 0644);
  }
  Metadata("here.jpg", "KELDOPHOTO_THUMB_S.jpg");
  Metadata("gone2.jpg", "notes.txt");
  auto expected = Snapshot(dir_.path());

  // Only this is ours.
  Metadata("gone.jpg", "KELDOPHOTO_THUMB_S.jpg");
  Metadata("here.jpg", "KELDOPHOTO.tmp.Ab3dEf.jpg");
  Metadata("gone3.jpg", "KELDOPHOTO_THUMB_S.jpg");
  EXPECT_EQ(Clean({"--force"}), 0) << runner_.errors;
  EXPECT_EQ(Snapshot(dir_.path()), expected);
  EXPECT_THAT(
      runner_.output,
      HasSubstr(
          "gone.jpg: 1 file, 5 bytes; the directory stays because it also holds other files"));
  EXPECT_THAT(runner_.output, Not(HasSubstr("gone2")));
  EXPECT_EQ(runner_.errors,
            "keldothumbctl: " + photos_ + "/sub/@eaDir: not a directory; skipped\n" +
                "keldothumbctl: " + photos_ + "/sub2/@eaDir: not a directory; skipped\n");
}

TEST_F(CleanCommand, RemovesAMarkerWhoseThumbnailExists) {
  Photo("a.jpg", kOld);
  Metadata("a.jpg", "KELDOPHOTO_THUMB_S.fail", "", kOld - 1);
  const std::string made = Metadata("a.jpg", "KELDOPHOTO_THUMB_M.fail", "");
  Metadata("a.jpg", "KELDOPHOTO:THUMB_M.jpg", "thumb", kOld);
  Metadata("a.jpg", "KELDOPHOTO_THUMB_L.fail", "");
  Metadata("a.jpg", "KELDOPHOTO_THUMB_L.jpg", "stale", kOld - 1);
  Metadata("a.jpg", "KELDOPHOTO_THUMB_XL.fail", "");
  Metadata("a.jpg", "KELDOPHOTO_THUMB_XL.jpg", "", kNew);  // empty
  Metadata("a.jpg", "KELDOPHOTO_THUMB_SM.jpg", "another kind", kOld);

  auto expected = Snapshot(dir_.path());
  EXPECT_EQ(Clean({"--force"}), 0);
  EXPECT_EQ(expected.erase(made.substr(dir_.path().size() + 1)), 1U);
  EXPECT_EQ(Snapshot(dir_.path()), expected);
}

TEST_F(CleanCommand, RemovesMarkersOlderThanThePhoto) {
  Photo("a.jpg");
  Photo("b.jpg");
  for (const char* photo : {"a.jpg", "b.jpg"}) {
    Metadata(photo, "KELDOPHOTO:THUMB_B.fail", "");
    Metadata(photo, "KELDOPHOTO_THUMB_S.fail", "");
  }
  ChangeAfter("a.jpg", "KELDOPHOTO_THUMB_S.fail");
  EXPECT_EQ(Clean({"--force"}), 0);
  EXPECT_TRUE(fs::is_empty(Of("a.jpg")));
  EXPECT_TRUE(fs::exists(Of("b.jpg") + "/KELDOPHOTO:THUMB_B.fail"));
  EXPECT_TRUE(fs::exists(Of("b.jpg") + "/KELDOPHOTO_THUMB_S.fail"));
}

TEST_F(CleanCommand, SkipsADirectoryInUse) {
  Metadata("gone.jpg", "KELDOPHOTO_THUMB_S.jpg");
  WriteFile(photos_ + "/sub/@eaDir/gone.jpg/KELDOPHOTO_THUMB_S.jpg", "thumb");
  {
    const UniqueFd lock(open((photos_ + "/@eaDir").c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(flock(lock.get(), LOCK_EX), 0);
    EXPECT_EQ(Clean({"--force"}), 1);
  }
  EXPECT_EQ(runner_.errors,
            "keldothumbctl: " + photos_ + ": another program is working on the folder; skipped\n");
  EXPECT_TRUE(fs::exists(Of("gone.jpg")));
  EXPECT_FALSE(fs::exists(photos_ + "/sub/@eaDir/gone.jpg"));
  EXPECT_EQ(Clean({"--force"}), 0);
  EXPECT_FALSE(fs::exists(Of("gone.jpg")));
}

TEST_F(CleanCommand, ALinkInsideTheTreeDoesNotHideItsTarget) {
  WriteFile(photos_ + "/z/@eaDir/gone.jpg/KELDOPHOTO_THUMB_S.jpg", "thumb");
  fs::create_symlink("z", photos_ + "/a");
  EXPECT_EQ(Clean({"--force"}), 0);
  EXPECT_FALSE(fs::exists(photos_ + "/z/@eaDir/gone.jpg"));
}

TEST_F(CleanCommand, CountsOverlappingTreesOnce) {
  WriteFile(photos_ + "/sub/@eaDir/gone.jpg/KELDOPHOTO_THUMB_S.jpg", "thumb");
  EXPECT_EQ(runner_.Run({"clean", photos_, photos_ + "/sub", photos_}), 0);
  EXPECT_THAT(runner_.output, HasSubstr("1 file, 5 bytes in total"));
}

TEST_F(CleanCommand, PrintsTheSameAsJson) {
  Photo("a.jpg");
  Metadata("a.jpg", "KELDOPHOTO.tmp.Ab3dEf.jpg");
  Metadata(kOddName, "KELDOPHOTO_THUMB_S.jpg");
  Metadata(kOddName, "foreign");
  for (const bool force : {false, true}) {
    const Json::Value value =
        CleanJson(force ? std::vector<std::string>{"--force"} : std::vector<std::string>{});
    EXPECT_EQ(value["removed"], force);
    EXPECT_EQ(value["files"], 2);
    EXPECT_EQ(value["bytes"], 10);
    EXPECT_EQ(value["problems"].size(), 0U);
    ASSERT_EQ(value["leftovers"].size(), 2U);
    const Json::Value& gone = value["leftovers"][0];
    EXPECT_EQ(gone["reason"], "photo gone");
    EXPECT_EQ(gone["directory_stays"], true);
    EXPECT_EQ(gone["files"][0], "KELDOPHOTO_THUMB_S.jpg");
    EXPECT_TRUE(gone.isMember("path_bytes"));
    EXPECT_EQ(value["leftovers"][1]["reason"], "temporary");
    EXPECT_EQ(value["leftovers"][1]["path"], Of("a.jpg"));
  }
  EXPECT_TRUE(fs::exists(Of(kOddName) + "/foreign"));
  EXPECT_EQ(CleanJson({"--force"})["files"], 0);
}

TEST_F(CleanCommand, PrintsNothingWhenQuietAndAllIsWell) {
  Metadata("gone.jpg", "KELDOPHOTO_THUMB_S.jpg");
  EXPECT_EQ(Clean({"--quiet", "--force"}), 0);
  EXPECT_EQ(runner_.output, "");
  EXPECT_FALSE(fs::exists(Of("gone.jpg")));
}

TEST_F(CleanCommand, WrongUsageHasStatusTwo) {
  EXPECT_EQ(runner_.Run({"clean"}), 2);
  EXPECT_EQ(runner_.Run({"clean", photos_ + "/none"}), 2);
  fs::create_directory(photos_ + "/@eaDir");
  EXPECT_EQ(runner_.Run({"clean", photos_ + "/@eaDir"}), 2);
}

}  // namespace
}  // namespace keldo::ctl
