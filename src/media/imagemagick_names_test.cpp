#include "media/imagemagick_names.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "fakes/syslog_capture.h"
#include "platform/process.h"
#include "platform/text.h"
#include "process/output.h"
#include "process/process_test_support.h"
#include "support/images.h"
#include "support/temp_dir.h"

namespace {

using keldo::media::IsImageMagick;
using keldo::media::LiteralNames;
using keldo::testing::CountDescriptors;
using keldo::testing::ReadFile;
using keldo::testing::Rgb;
using keldo::testing::TempDir;
using keldo::testing::WriteFile;
using testing::ElementsAre;
using testing::ElementsAreArray;

namespace fs = std::filesystem;

constexpr const char* kConvert = "/usr/bin/convert";
constexpr const char* kCompare = "/usr/bin/compare";
constexpr Rgb kRed{200, 30, 30};
constexpr Rgb kBlue{30, 40, 200};

std::string PlainJpeg(Rgb colour) {
  return keldo::testing::EncodeJpeg(keldo::testing::Plain(96, 96, colour));
}

// Width and colour of a file: "64 red".
std::string Look(const std::string& path) {
  const auto image = keldo::testing::DecodeJpeg(ReadFile(path));
  if (!image) return fs::exists(path) ? "no image" : "missing";
  const Rgb middle = image->At(image->width / 2, image->height / 2);
  const bool red = std::abs(middle[0] - kRed[0]) < 10 && std::abs(middle[2] - kRed[2]) < 10;
  return std::to_string(image->width) + (red ? " red" : " another colour");
}

// Every file below a directory, with its content.
std::map<std::string, std::string> Contents(const std::string& directory) {
  std::map<std::string, std::string> contents;
  for (const auto& entry : fs::recursive_directory_iterator(directory))
    contents[entry.path().string()] = entry.is_regular_file() ? ReadFile(entry.path()) : "";
  return contents;
}

std::string Escaped(const std::string& path) {
  std::vector<char> escaped(2 * path.size() + 1);
  EscapePercentSign(path.c_str(), escaped.data(), escaped.size());
  return escaped.data();
}

// What the program runs for a photo with two thumbnails; `first` is the bigger one.
int Convert(const std::string& photo, const std::string& directory, const std::string& first,
            const std::string& second) {
  KELDOUtils::ProcessRunner runner(kConvert, kConvert);
  runner.addArguments("-define", ("registry:temporary-path=" + Escaped(directory)).c_str(),
                      photo.c_str());
  runner.addArguments("(", "-clone", "0", "-thumbnail", "64x64>");
  runner.addArguments("-write", first.c_str(), ")", "-delete", "0");
  runner.addArguments("-thumbnail", "32x32>", second.c_str());
  return runner.run(true, false);
}

const std::vector<std::string>& AwkwardNames() {
  static const std::vector<std::string> names{
      "a b.jpg",   "q'u\"o.jpg",   "new\nline.jpg", "100%.jpg",        "a%d.jpg",
      "a%03d.jpg", "a%%.jpg",      "a%[x].jpg",     "a[1].jpg",        "a*.jpg",
      "a?.jpg",    "{a,b}.jpg",    "x.jpg[0]",      "-lead.jpg",       "@at.jpg",
      "~t.jpg",    "\xff\xfe.jpg", "a:b.jpg",       "back\\slash.jpg", "png:x.jpg",
      "$HOME.jpg", "`a`;|&.jpg",   " blank .jpg",   "a.jpg[16x16]",    "a[1][0].jpg",
      "+plus.jpg", "a%w.jpg",      "!icc,*.jpg"};
  return names;
}

// A directory with a red photo of an awkward name, blue photos under the names that the converter
// might read instead, and a metadata directory named after the photo.
class AwkwardName : public testing::TestWithParam<std::string> {
 protected:
  AwkwardName() {
    fs::create_directories(thumbs_);
    for (const char* decoy : {"a.jpg", "a0.jpg", "a1.jpg", "ab.jpg", "aa.jpg", "b.jpg", "a000.jpg",
                              "a%.jpg", "x.jpg", "x.jpg", "0", "100.jpg", "lead.jpg", "at.jpg"})
      WriteFile(dir_.path() + "/" + decoy, PlainJpeg(kBlue));
    WriteFile(photo_, PlainJpeg(kRed));
  }

  void ExpectThumbnails(const std::string& input) {
    const std::string first = thumbs_ + "/KELDOPHOTO.tmp.a1B2c3.jpg";
    const std::string second = thumbs_ + "/KELDOPHOTO.tmp.d4E5f6.jpg";
    auto expected = Contents(dir_.path());
    EXPECT_EQ(Convert(input, thumbs_, first, second), 0);
    EXPECT_EQ(Look(first), "64 red");
    EXPECT_EQ(Look(second), "32 red");
    expected[first] = ReadFile(first);
    expected[second] = ReadFile(second);
    EXPECT_TRUE(Contents(dir_.path()) == expected) << "another file was made or changed";
  }

  TempDir dir_;  // NOLINT(misc-non-private-member-variables-in-classes)
  std::string photo_ = dir_.path() + "/" + GetParam();
  std::string thumbs_ = dir_.path() + "/@eaDir/" + GetParam();
};

TEST_P(AwkwardName, IsConvertedAsItIs) {
  ExpectThumbnails(photo_);
}

TEST_P(AwkwardName, IsConvertedByItsFirstFrame) {
  ExpectThumbnails(photo_ + "[0]");
}

TEST_P(AwkwardName, IsCompared) {
  const std::string second = thumbs_ + "/second.jpg";
  WriteFile(second, PlainJpeg(kRed));
  FILE* stream = KLIBCPopen(kCompare, "rE", "-metric", "MAE", photo_.c_str(), second.c_str(),
                            "null:", nullptr);
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(keldo::process::StreamReader(stream).ReadLine(255), "0 (0)");
  EXPECT_EQ(KLIBCPclose(stream), 0);
}

INSTANTIATE_TEST_SUITE_P(Converter, AwkwardName, testing::ValuesIn(AwkwardNames()),
                         [](const auto& name) { return std::to_string(name.index); });

class RelativeDirectory : public testing::TestWithParam<const char*> {
 protected:
  void SetUp() override { fs::current_path(dir_.path()); }
  void TearDown() override { fs::current_path(before_); }

 private:
  fs::path before_ = fs::current_path();
  TempDir dir_;
};

TEST_P(RelativeDirectory, IsReadAndWritten) {
  const std::string directory = GetParam();
  fs::create_directories(directory);
  WriteFile(directory + "/a.jpg", PlainJpeg(kRed));
  EXPECT_EQ(Convert(directory + "/a.jpg", directory, directory + "/b.jpg", directory + "/c.jpg"),
            0);
  EXPECT_EQ(Look(directory + "/b.jpg"), "64 red");
  EXPECT_EQ(Look(directory + "/c.jpg"), "32 red");
  EXPECT_EQ(std::distance(fs::directory_iterator(directory), fs::directory_iterator()), 3);
}

INSTANTIATE_TEST_SUITE_P(Converter, RelativeDirectory,
                         testing::Values("-dir", "@dir", "png:x", "~", "+dir", "-dir/@eaDir", "."),
                         [](const auto& name) { return std::to_string(name.index); });

TEST(LiteralNamesTest, AFileNamedLikeAFrameDoesNotReplaceThePhoto) {
  const TempDir dir;
  const std::string photo = dir.path() + "/x.webp";
  WriteFile(photo, PlainJpeg(kRed));
  WriteFile(photo + "[0]", PlainJpeg(kBlue));
  EXPECT_EQ(Convert(photo + "[0]", dir.path(), dir.path() + "/1.jpg", dir.path() + "/2.jpg"), 0);
  EXPECT_EQ(Look(dir.path() + "/1.jpg"), "64 red");
}

TEST(LiteralNamesTest, TheProgramIsNotStartedForAMissingPhoto) {
  keldo::testing::ClearSyslog();
  const TempDir dir;
  const std::string photo = dir.path() + "/a*.jpg";
  WriteFile(dir.path() + "/ab.jpg", PlainJpeg(kBlue));
  EXPECT_NE(Convert(photo, dir.path(), dir.path() + "/1.jpg", dir.path() + "/2.jpg"), 0);
  EXPECT_FALSE(fs::exists(dir.path() + "/1.jpg"));
  EXPECT_THAT(keldo::testing::CapturedSyslog(),
              ElementsAre(keldo::testing::LogLine{
                  3,
                  "process:41 [Error] failed to start /usr/bin/convert: No such file or "
                  "directory"}));
  EXPECT_EQ(KLIBCPopen(kCompare, "rE", photo.c_str(), "null:", nullptr), nullptr);
  EXPECT_EQ(LiteralNames(kConvert, {"convert", photo}).error(), ENOENT);
}

TEST(LiteralNamesTest, HoldsDescriptorsNoLongerThanNeeded) {
  const TempDir dir;
  fs::create_directory(dir.path() + "/100%");
  WriteFile(dir.path() + "/a*.jpg", "");
  const auto before = CountDescriptors();
  {
    const LiteralNames names(kConvert,
                             {"convert", dir.path() + "/a*.jpg", dir.path() + "/100%/b.jpg"});
    EXPECT_EQ(names.error(), 0);
    EXPECT_EQ(CountDescriptors(), before + 2);
  }
  EXPECT_EQ(CountDescriptors(), before);
}

TEST(LiteralNamesTest, LeavesOrdinaryPathsAndOptionsUnchanged) {
  const TempDir dir;
  WriteFile(dir.path() + "/a b.webp", "");
  const std::vector<std::string> arguments{"/usr/keldo/bin/convert-thumb",
                                           "-define",
                                           "registry:temporary-path=/v/100%%/@eaDir/a*.jpg",
                                           dir.path() + "/a b.webp[0]",
                                           "(",
                                           "-thumbnail",
                                           "64x64>^",
                                           "+profile",
                                           "!icc,*",
                                           "/v/@eaDir/KELDOPHOTO:THUMB_S.jpg",
                                           "null:",
                                           "-",
                                           "",
                                           "a*"};
  const LiteralNames names(kConvert, arguments);
  EXPECT_EQ(names.error(), 0);
  EXPECT_THAT(names.arguments(), ElementsAreArray(arguments));
}

TEST(LiteralNamesTest, OtherProgramsGetTheNamesUnchanged) {
  const LiteralNames names("/usr/bin/dcraw",
                           {"-/dcraw", "/v/a*%d[0].nef", "-dir/a.nef", "@dir/a.nef", "png:x/a.nef",
                            "~/a.nef", "-c", "+x/a"});
  EXPECT_EQ(names.error(), 0);
  EXPECT_THAT(names.arguments(),
              ElementsAre("-/dcraw", "/v/a*%d[0].nef", "./-dir/a.nef", "./@dir/a.nef",
                          "png:x/a.nef", "~/a.nef", "-c", "+x/a"));
}

TEST(IsImageMagickTest, FollowsLinksToTheProgram) {
  const TempDir dir;
  const std::string link = dir.path() + "/convert-thumb";
  fs::create_symlink(kConvert, link);
  EXPECT_TRUE(IsImageMagick(kConvert));
  EXPECT_TRUE(IsImageMagick(kCompare));
  EXPECT_TRUE(IsImageMagick(link));
  fs::create_symlink("/bin/true", dir.path() + "/convert");
  EXPECT_FALSE(IsImageMagick(dir.path() + "/convert"));
  EXPECT_FALSE(IsImageMagick("/bin/true"));
  EXPECT_FALSE(IsImageMagick("/nonexistent/convert"));
}

}  // namespace
