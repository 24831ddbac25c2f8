// Failed conversions: our converter ends like ImageMagick's and leaves nothing behind.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "convert/comparison.h"

namespace keldo::testing {
namespace {

namespace fs = std::filesystem;

class FailureTest : public ComparisonTest {
 protected:
  // Our converter fails and names the file, and there is no output file.
  void ExpectFailure(const std::string& input) {
    const ThumbRequestList list = ThreeThumbnails();
    const Ended ours = RunOurs(Arguments(list, input));
    EXPECT_EQ(ours.status, 1) << input;
    EXPECT_NE(ours.error.find(input), std::string::npos) << ours.error;
    for (const ThumbRequest& request : list)
      EXPECT_FALSE(Exists(request.tempPath)) << input;
  }

  void ExpectFailureOfBoth(const std::string& input) {
    EXPECT_EQ(RunReference(Arguments(ThreeThumbnails(), input)).status, 1) << input;
    for (const fs::path& made : Outputs())
      fs::remove(made);
    ExpectFailure(input);
  }

 private:
  [[nodiscard]] std::vector<fs::path> Outputs() const {
    std::vector<fs::path> outputs;
    for (const fs::directory_entry& entry : fs::directory_iterator(Dir())) {
      if (entry.path().filename().string().starts_with("out")) outputs.push_back(entry.path());
    }
    return outputs;
  }
};

TEST_F(FailureTest, FilesThatAreNotImages) {
  ExpectFailureOfBoth(In("missing.jpg"));
  ExpectFailureOfBoth(WriteContent(In("empty.jpg"), ""));
  ExpectFailureOfBoth(WriteContent(In("rubbish.jpg"), std::string(5000, 'r')));
  ExpectFailureOfBoth(WriteContent(In("start-only.jpg"), "\xFF\xD8\xFF"));
  ExpectFailureOfBoth(MakeDir(In("directory.jpg")));
}

// From a photo that is still being copied, both make an image of what is there. If nothing is there
// yet, ours makes none and ImageMagick makes a gray one.
TEST_F(FailureTest, JpegFilesTruncatedAtManyPlaces) {
  for (const char* kind : {"Jpeg420", "JpegProgressive", "JpegGray"}) {
    const std::string photo = Source(kind, 320, 240);
    const std::string content = ReadContent(photo);
    constexpr std::size_t kHeaderAndFirstRows = 900;
    std::vector<std::size_t> lengths = {4, 20, 21, 100, 200, 300};
    for (std::size_t part = 2; part < 12; ++part)
      lengths.push_back(content.size() * part / 12);
    for (const std::size_t back : {1, 2, 3, 10, 100})
      lengths.push_back(content.size() - back);
    for (const std::size_t length : lengths) {
      SCOPED_TRACE(std::string(kind) + " cut to " + std::to_string(length) + " of " +
                   std::to_string(content.size()));
      WriteContent(photo, content.substr(0, length));
      const ThumbRequestList list = {Wanted(100), Wanted(40, false)};
      if (length < kHeaderAndFirstRows) {
        const Ended ours = RunOurs(Arguments(list, photo));
        EXPECT_EQ(ours.status, 1);
        EXPECT_EQ(std::ranges::count(ours.error, '\n'), 1) << ours.error;
        EXPECT_FALSE(Exists(list[0].tempPath) || Exists(list[1].tempPath));
        continue;
      }
      CompareRuns(Arguments(list, photo), {list[0].tempPath, list[1].tempPath}, {});
    }
  }
}

TEST_F(FailureTest, TruncatedFilesOfOtherFormatsDoNotHang) {
  for (const char* kind :
       {"Bmp", "Ppm", "Png", "PngInterlaced", "TiffLzw", "Webp", "Gif", "Heic"}) {
    const std::string photo = Source(kind, 200, 150);
    const std::string content = ReadContent(photo);
    for (std::size_t part = 0; part < 8; ++part) {
      SCOPED_TRACE(std::string(kind) + " cut to eighths: " + std::to_string(part));
      WriteContent(photo, content.substr(0, content.size() * part / 8));
      const ThumbRequest request = Wanted(50);
      const Ended ours = RunOurs(Arguments({request}, photo));
      EXPECT_TRUE(ours.status == 0 || ours.status == 1) << ours.status << ours.error;
      EXPECT_EQ(Exists(request.tempPath), ours.status == 0);
    }
  }
}

TEST_F(FailureTest, OutputsThatCannotBeWritten) {
  const std::string photo = Source("Jpeg420", 320, 240);
  for (const std::string& output : {In("no/such/directory.jpg"), MakeDir(In("directory.jpg"))}) {
    ThumbRequestList list = ThreeThumbnails();
    list[1].tempPath = output;
    const Ended reference = RunReference(Arguments(list, photo));
    EXPECT_EQ(reference.status, 1) << reference.error;
    fs::remove(list[0].tempPath);
    fs::remove(list[2].tempPath);
    const Ended ours = RunOurs(Arguments(list, photo));
    EXPECT_EQ(ours.status, 1) << ours.error;
    EXPECT_FALSE(Exists(list[0].tempPath));
    EXPECT_FALSE(Exists(list[2].tempPath));
  }
}

TEST_F(FailureTest, FullDiskLeavesNoFiles) {
  ThumbRequestList list = ThreeThumbnails();
  fs::create_symlink("/dev/full", list[2].tempPath);
  const Ended ours = RunOurs(Arguments(list, Source("Jpeg420", 320, 240)));
  EXPECT_EQ(ours.status, 1) << ours.error;
  EXPECT_FALSE(Exists(list[0].tempPath));
  EXPECT_FALSE(Exists(list[1].tempPath));
}

// ---- Names ----

class NameTest : public ComparisonTest, public ::testing::WithParamInterface<const char*> {};

// ImageMagick interprets many of these names, so it cannot serve as a reference.
TEST_P(NameTest, OfTheInputIsLiteral) {
  const std::string photo = In(GetParam());
  WriteContent(photo, ReadContent(Source("Jpeg420", 320, 240)));
  const ThumbRequest request = Wanted(100);
  const Ended ours = RunOurs(Arguments({request}, photo));
  EXPECT_EQ(ours.status, 0) << ours.error;
  EXPECT_TRUE(DecodeJpeg(ReadContent(request.tempPath)));
}

TEST_P(NameTest, OfTheInputMayBeRelative) {
  WriteContent(In(GetParam()), ReadContent(Source("Jpeg420", 320, 240)));
  const ThumbRequest request = Wanted(100);
  const Ended ours = RunOurs(Arguments({request}, GetParam()), Dir());
  EXPECT_EQ(ours.status, 0) << ours.error;
  EXPECT_TRUE(Exists(request.tempPath));
}

TEST_P(NameTest, OfAnOutputIsLiteral) {
  const std::string folder = MakeDir(In("outputs"));
  ThumbRequestList list = {Wanted(100), Wanted(50)};
  list[0].tempPath = folder + "/" + GetParam();
  list[1].tempPath = folder + "/2" + GetParam();
  const Ended ours = RunOurs(Arguments(list, Source("Png", 320, 240)));
  EXPECT_EQ(ours.status, 0) << ours.error;
  EXPECT_TRUE(Exists(list[0].tempPath));
  EXPECT_TRUE(Exists(list[1].tempPath));
  EXPECT_EQ(std::distance(fs::directory_iterator(folder), fs::directory_iterator()), 2);
}

TEST_P(NameTest, OfTheProfileIsLiteral) {
  const std::string profile = WriteContent(In(GetParam()), "a profile of some length");
  const ThumbRequest request = Wanted(100);
  const Ended ours = RunOurs(Arguments({request}, Source("Bmp", 320, 240), profile));
  EXPECT_EQ(ours.status, 0) << ours.error;
}

INSTANTIATE_TEST_SUITE_P(Hostile, NameTest,
                         ::testing::Values("a b.jpg", "100%d.jpg", "%08d.jpg", "a[1].jpg", "*.jpg",
                                           "?.jpg", "png:x.jpg", "@list.jpg", "-a b.jpg",
                                           "x\ny.jpg", "q'q\"q.jpg", "\xFF\xFE.jpg", "a;b&c|d.jpg",
                                           "(.jpg", "~.jpg", "%[fx:1].jpg", "$(true).jpg"));

TEST_F(ComparisonTest, BracketSuffixOfTheInputIsPartOfItsName) {
  const std::string photo = In("a.jpg[1]");
  WriteContent(photo, ReadContent(Source("Jpeg420", 320, 240)));
  const ThumbRequest request = Wanted(100);
  EXPECT_EQ(RunOurs(Arguments({request}, photo)).status, 0);
  EXPECT_TRUE(Exists(request.tempPath));
}

// ---- Running ImageMagick ----

class RunImageMagickTest : public ComparisonTest {
 protected:
  static constexpr Likeness kTheSame = {.psnr = 1000, .ssim = 1};
};

TEST_F(RunImageMagickTest, FormatsThatWeDoNotRead) {
  const std::string plain = WriteContent(In("p.ppm"), EncodePpm(NaturalImage(300, 200)));
  for (const char* name : {"p.pcx", "p.psd", "p.tga", "p.sgi"}) {
    SCOPED_TRACE(name);
    RunTool({"convert", plain, In(name)});
    Compare(ThreeThumbnails(), In(name), kTheSame);
  }
}

TEST_F(RunImageMagickTest, OptionsThatWeDoNotUnderstand) {
  const std::string photo = Source("Jpeg420", 320, 240);
  const std::string output = In("o.jpg");
  for (const std::vector<std::string>& options :
       std::vector<std::vector<std::string>>{{"-negate"},
                                             {"-resize", "50%"},
                                             {"-thumbnail", "100x100!"},
                                             {"-thumbnail", "100x100>", "-strip"},
                                             {"-rotate", "45"},
                                             {}}) {
    std::vector<std::string> arguments = {photo};
    arguments.insert(arguments.end(), options.begin(), options.end());
    arguments.push_back(output);
    SCOPED_TRACE(options.empty() ? "none" : options.front() + options.back());
    CompareRuns(arguments, {output}, kTheSame);
    EXPECT_TRUE(Exists(output));
  }
}

TEST_F(RunImageMagickTest, ArgumentsThatNeitherUnderstands) {
  const std::string photo = Source("Jpeg420", 320, 240);
  CompareRuns({photo, "-no-such-option", In("o.jpg")}, {In("o.jpg")}, kTheSame);
  CompareRuns({"(", photo}, {}, kTheSame);
  CompareRuns({photo, "-thumbnail"}, {}, kTheSame);
}

}  // namespace
}  // namespace keldo::testing
