// A photo's path through djpeg, the converter, and the commit of its finished thumbnails.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "e2e/fixtures.h"
#include "support/images.h"

namespace keldo::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kTwoKinds =
    "[thumb_xl]\nsize=1280\nquality=86\nfilename=KELDOPHOTO_THUMB_XL.jpg\n"
    "[thumb_s]\nsize=120\nquality=81\nfilename=KELDOPHOTO_THUMB_S.jpg\n";

// The argument vectors of phase 0, by the parts that differ between photos.
struct Expected {
  std::string photo = "/volume1/photo/a.jpg";
  std::string metadata = MetadataOf("a.jpg");
  std::string temporary_path = metadata;
  std::string limit;
  std::string input = photo;
  std::string first = "-auto-orient";  ///< Rotation of the first thumbnail.
  std::string colour_space = "sRGB";

  [[nodiscard]] std::vector<std::string> Convert() const {
    const std::string temporary = metadata + "/KELDOPHOTO.tmp.XXXXXX.jpg";
    return Words("/usr/keldo/bin/convert-thumb -define registry:temporary-path=" + temporary_path +
                 " " + limit + " " + input +
                 " ( -clone 0 -define jpeg:size=1280x1280 -thumbnail 1280x1280>^ -quality 86 "
                 "+profile !icc,* -flatten " +
                 first + " -colorspace " + colour_space + " -write " + temporary +
                 " ) -delete 0 -define jpeg:size=120x120 "
                 "-thumbnail 120x120> -quality 81 +profile !icc,* -flatten -auto-orient "
                 "-colorspace " +
                 colour_space + " " + temporary);
  }
  [[nodiscard]] std::vector<std::string> Djpeg(const std::string& scale) const {
    return Words("/bin/djpeg -scale " + scale + " -dct fast -fast -onepass -bmp -outfile " +
                 metadata + "/KELDOPHOTO.tmp.XXXXXX.jpg -icc " + metadata +
                 "/KELDOPHOTO_PROFILE.icc " + photo);
  }
  // The same, with djpeg's bitmap as the input.
  [[nodiscard]] Expected OfBitmap(const std::string& options = "-auto-orient") const {
    Expected expected = *this;
    expected.input = metadata + "/KELDOPHOTO.tmp.XXXXXX.jpg";
    expected.first = options;
    return expected;
  }
};

class PipelineTest : public ::testing::Test {
 protected:
  PipelineTest() {
    box.StartDaemon(AnswerVersion(0));
    box.UseProfile(kTwoKinds);
  }

  RunResult RunWith(const std::string& name, const std::string& content) {
    box.AddPhoto(name, content);
    return box.RunOn();
  }
  RunResult RunWithSmallPhoto() { return RunWith("a.jpg", EncodeJpeg(FourCorners(64, 48))); }

  void ExpectFailed() const { EXPECT_EQ(box.List(MetadataOf("a.jpg")), MarkerNames("XL S")); }

  Sandbox box;
  Expected expected;
};

TEST_F(PipelineTest, LargeJpegsAreScaledDownFirst) {
  struct Case {
    int width, height;
    const char* scale;
  };
  for (const Case& size : {Case{5000, 4000, "1/2"}, Case{2560, 2560, "1/2"},
                           Case{12000, 9000, "1/4"}, Case{10240, 10240, "1/8"}}) {
    box.Remove("/volume1/photo/@eaDir");
    const RunResult run = RunWith("a.jpg", JpegHeaderOf(size.width, size.height));
    EXPECT_THAT(Calls(run, "djpeg"), ElementsAre(expected.Djpeg(size.scale)));
    EXPECT_THAT(Calls(run, "convert-thumb"), ElementsAre(expected.OfBitmap().Convert()));
    EXPECT_EQ(run.invocations.at(0).arguments.at(9), run.invocations.at(1).arguments.at(3));
    EXPECT_EQ(box.List(MetadataOf("a.jpg")), ThumbNames("XL S")) << "no bitmap is left";
  }
}

TEST_F(PipelineTest, SmallerJpegsGoToTheConverterDirectly) {
  for (const auto& [width, height] :
       {std::pair{2000, 1500}, {2559, 9000}, {9000, 2559}, {64, 48}}) {
    box.Remove("/volume1/photo/@eaDir");
    const RunResult run = RunWith("a.jpg", JpegHeaderOf(width, height));
    EXPECT_THAT(Calls(run, "djpeg"), IsEmpty()) << width << 'x' << height;
    EXPECT_THAT(Calls(run, "convert-thumb"), ElementsAre(expected.Convert()));
  }
}

TEST_F(PipelineTest, BitmapIsRotatedByTheOrientationTag) {
  const char* const options[] = {"",
                                 "",
                                 "-flop",
                                 "-rotate 180",
                                 "-rotate 180 -flop",
                                 "-rotate 90 -flop",
                                 "-rotate 90",
                                 "-rotate 270 -flop",
                                 "-rotate 270"};
  for (int orientation = 0; orientation <= 8; ++orientation) {
    box.Remove("/volume1/photo/@eaDir");
    const RunResult run = RunWith("a.jpg", JpegHeaderOf(5000, 4000, orientation));
    const Expected rotated = expected.OfBitmap(std::string("-auto-orient ") + options[orientation]);
    EXPECT_THAT(Calls(run, "convert-thumb"), ElementsAre(rotated.Convert())) << orientation;
  }
}

TEST_F(PipelineTest, ColourProfileIsReattached) {
  box.Script("djpeg", "outputs rubbish\nicc PROFILE\n");
  box.Script("convert-thumb",
             "stdout-file /volume1/photo/@eaDir/a.jpg/KELDOPHOTO_PROFILE.icc\noutputs jpeg\n");
  const RunResult run = RunWith("a.jpg", JpegHeaderOf(5000, 4000));
  Expected with_profile = expected.OfBitmap();
  with_profile.input += " -profile " + MetadataOf("a.jpg") + "/KELDOPHOTO_PROFILE.icc";
  EXPECT_THAT(Calls(run, "convert-thumb"), ElementsAre(with_profile.Convert()));
  EXPECT_EQ(run.standard_output, "PROFILE");
  EXPECT_EQ(box.List(MetadataOf("a.jpg")), ThumbNames("XL S")) << "the profile file is removed";
}

TEST_F(PipelineTest, EmptyColourProfileIsLeftOut) {
  box.Script("djpeg", "outputs rubbish\nicc \n");
  const RunResult run = RunWith("a.jpg", JpegHeaderOf(5000, 4000));
  EXPECT_THAT(Calls(run, "convert-thumb"), ElementsAre(expected.OfBitmap().Convert()));
  EXPECT_EQ(box.List(MetadataOf("a.jpg")), ThumbNames("XL S"));
}

TEST_F(PipelineTest, FailedDjpegFallsBackToThePhotoItself) {
  box.Script("djpeg", "outputs rubbish\nicc PROFILE\nexit 1\n");
  const RunResult run = RunWith("a.jpg", JpegHeaderOf(5000, 4000, 5));
  EXPECT_THAT(Calls(run, "djpeg"), ElementsAre(expected.Djpeg("1/2")));
  EXPECT_THAT(Calls(run, "convert-thumb"), ElementsAre(expected.Convert()))
      << "without the rotation that was meant for the bitmap";
  EXPECT_EQ(box.List(MetadataOf("a.jpg")), ThumbNames("XL S"));
}

TEST_F(PipelineTest, FailedConversionOfTheBitmapFallsBackToo) {
  box.Script("convert-thumb", "when /volume1/photo/a.jpg\noutputs jpeg\nexit 0\nalways\nexit 1\n");
  const RunResult run = RunWith("a.jpg", JpegHeaderOf(5000, 4000, 6));
  EXPECT_THAT(
      Calls(run, "convert-thumb"),
      ElementsAre(expected.OfBitmap("-auto-orient -rotate 90").Convert(), expected.Convert()));
  EXPECT_EQ(box.List(MetadataOf("a.jpg")), ThumbNames("XL S"));
}

TEST_F(PipelineTest, UnreadableJpegFailsWithoutAnyChild) {
  const RunResult run = RunWith("a.jpg", "not an image");
  EXPECT_THAT(run.invocations, IsEmpty());
  EXPECT_THAT(run.log, ElementsAre(LogLine{4,
                                           "index_ipc:61 [Warning] cannot be read as an image: "
                                           "/volume1/photo/a.jpg"}));
  ExpectFailed();
}

TEST_F(PipelineTest, OtherTypesAndOtherBoxesAreNeverScaledFirst) {
  const RunResult png = RunWith("a.png", JpegHeaderOf(5000, 4000));
  EXPECT_EQ(png.invocations.size(), 1U);
  EXPECT_THAT(Calls(png, "djpeg"), IsEmpty());

  box.Remove("/volume1/photo/a.png");
  box.UseProfile("[thumb_xl]\nsize=1279\nfilename=KELDOPHOTO_THUMB_XL.jpg\n");
  const RunResult other_box = RunWith("a.jpg", JpegHeaderOf(5000, 4000));
  EXPECT_EQ(other_box.invocations.size(), 1U);
  EXPECT_THAT(Calls(other_box, "djpeg"), IsEmpty());
}

TEST_F(PipelineTest, EveryJpegExtensionIsScaledFirst) {
  for (const char* name : {"b.JPG", "c.jpeg", "d.Jpe"}) {
    EXPECT_EQ(Calls(RunWith(name, JpegHeaderOf(5000, 4000)), "djpeg").size(), 1U) << name;
  }
}

TEST_F(PipelineTest, OnlyTheFirstPageIsRead) {
  for (const char* name : {"a.gif", "a.TIF", "a.tiff", "a.webp", "a.heic"}) {
    box.Remove(kPhotoDir);
    const auto calls = Calls(RunWith(name, EncodeJpeg(FourCorners(64, 48))), "convert-thumb");
    ASSERT_EQ(calls.size(), 1U) << name;
    EXPECT_EQ(calls[0].at(3), "/volume1/photo/" + std::string(name) + "[0]");
  }
}

TEST_F(PipelineTest, HeicGetsAnotherColourSpace) {
  const RunResult run = RunWith("A.HEIC", EncodeJpeg(FourCorners(64, 48)));
  Expected heic;
  heic.metadata = heic.temporary_path = MetadataOf("A.HEIC");
  heic.input = "/volume1/photo/A.HEIC[0]";
  heic.colour_space = "YCbCr";
  EXPECT_THAT(Calls(run, "convert-thumb"), ElementsAre(heic.Convert()));
}

TEST_F(PipelineTest, PercentSignsAreEscapedInTheDirectoryOnly) {
  const RunResult run = RunWith("100%d.png", EncodeJpeg(FourCorners(64, 48)));
  Expected percent;
  percent.photo = percent.input = "/volume1/photo/100%d.png";
  percent.metadata = MetadataOf("100%d.png");
  percent.temporary_path = MetadataOf("100%%d.png");
  EXPECT_THAT(Calls(run, "convert-thumb"), ElementsAre(percent.Convert()));
}

TEST_F(PipelineTest, LittleMemoryMeansOneThread) {
  box.SetTotalMemory(524287);
  expected.limit = "-limit thread 1";
  EXPECT_THAT(Calls(RunWithSmallPhoto(), "convert-thumb"), ElementsAre(expected.Convert()));
}

TEST_F(PipelineTest, HalfAGibibyteOfMemoryAllowsMoreThreads) {
  box.SetTotalMemory(524288);
  EXPECT_THAT(Calls(RunWithSmallPhoto(), "convert-thumb"), ElementsAre(expected.Convert()));
}

// A child has the three standard descriptors, the stand-in's script, and the directory that it
// lists.
TEST_F(PipelineTest, ChildrenInheritNoOtherDescriptors) {
  box.Script("convert-thumb", "list /proc/self/fd\noutputs jpeg\n");
  const RunResult run = RunWithSmallPhoto();
  EXPECT_THAT(Words(run.standard_output), ::testing::UnorderedElementsAre("0", "1", "2", "3", "4"));
}

TEST_F(PipelineTest, TemporaryFilesAppearOnlyWhenTheConverterWritesThem) {
  box.Script("convert-thumb", "list /volume1/photo/@eaDir/a.jpg\noutputs jpeg\n");
  const RunResult run = RunWithSmallPhoto();
  EXPECT_EQ(run.standard_output, "");
  const auto& call = run.invocations.at(0).arguments;
  EXPECT_NE(call.back(), call.at(20)) << "a name for each thumbnail";
  EXPECT_EQ(std::filesystem::path(call.back()).parent_path(), MetadataOf("a.jpg"));
}

TEST_F(PipelineTest, TemporariesOfAFailedConverterStay) {
  box.Script("convert-thumb", "outputs jpeg\nexit 1\n");
  EXPECT_EQ(RunWithSmallPhoto().log.size(), 1U) << "the converter's failure";
  const std::vector<std::string> names = box.List(MetadataOf("a.jpg"));
  EXPECT_EQ(std::count_if(names.begin(), names.end(),
                          [](const auto& name) { return name.starts_with("KELDOPHOTO.tmp."); }),
            2);
  EXPECT_TRUE(box.Exists(MarkerOf("a.jpg", "XL")));
  EXPECT_FALSE(box.Exists(ThumbOf("a.jpg", "XL")));
}

TEST_F(PipelineTest, PhotoThatGrewDuringTheRunIsNotCommitted) {
  box.Script("convert-thumb", "outputs jpeg\nappend /volume1/photo/a.jpg\n");
  const RunResult run = RunWithSmallPhoto();
  const auto size = box.Status("/volume1/photo/a.jpg").st_size;
  ASSERT_EQ(run.log.size(), 1U);
  EXPECT_EQ(run.log[0].priority, 3);
  EXPECT_THAT(run.log[0].text,
              ::testing::MatchesRegex(
                  "keldomk_photo_thumb:484 .Error. file size changed: st_blocks [0-9]+ -> [0-9]+; "
                  "st_size " +
                  std::to_string(size - (1 << 20)) + " -> " + std::to_string(size) +
                  ", /volume1/photo/a.jpg"));
  ExpectFailed();
}

TEST_F(PipelineTest, PhotoRewrittenInTheSameSizeIsCommitted) {
  box.Script("convert-thumb", "outputs jpeg\nrewrite /volume1/photo/a.png\n");
  EXPECT_EQ(RunWith("a.png", EncodeJpeg(FourCorners(64, 48))).exit_status, 0);
  EXPECT_EQ(box.List(MetadataOf("a.png")), ThumbNames("XL S"));
}

TEST_F(PipelineTest, PhotoThatGrewWithinItsBlocksIsCommitted) {
  box.Script("convert-thumb", "outputs jpeg\ngrow /volume1/photo/a.png\n");
  EXPECT_THAT(RunWith("a.png", EncodeJpeg(FourCorners(64, 48))).log, IsEmpty());
  EXPECT_EQ(box.List(MetadataOf("a.png")), ThumbNames("XL S"));
}

TEST_F(PipelineTest, PhotoThatVanishedIsNotCommitted) {
  box.Script("convert-thumb", "outputs jpeg\nremove /volume1/photo/a.jpg\n");
  const RunResult run = RunWithSmallPhoto();
  EXPECT_THAT(run.log, ElementsAre(ErrorLine("keldomk_photo_thumb:471 Failed to KLIBCFileStat() "
                                             "path [/volume1/photo/a.jpg]")));
  EXPECT_THAT(run.requests, ElementsAre(VersionRequest("/volume1/photo/a.jpg"),
                                        PostRequest("/volume1/photo/a.jpg")));
  ExpectFailed();
}

TEST_F(PipelineTest, ConverterThatWritesNothingFailsTheRename) {
  box.Script("convert-thumb", "exit 0\n");
  const RunResult run = RunWithSmallPhoto();
  const auto& call = run.invocations.at(0).arguments;
  EXPECT_THAT(run.log,
              ElementsAre(ErrorLine("keldomk_photo_thumb:504 [Error] rename: " + call.at(20) +
                                    ", " + ThumbOf("a.jpg", "XL")),
                          ErrorLine("keldomk_photo_thumb:504 [Error] rename: " + call.back() +
                                    ", " + ThumbOf("a.jpg", "S"))))
      << "widest first";
  ExpectFailed();
}

TEST_F(PipelineTest, ThumbnailsOfOneByteAreRemoved) {
  for (const auto& [kind, size] : {std::pair{"byte", "1"}, {"empty", "0"}}) {
    box.Script("convert-thumb", std::string("outputs ") + kind + "\n");
    const std::string text =
        std::string("keldomk_photo_thumb:515 [Error] file size of dest path: ") + size + ", ";
    EXPECT_THAT(RunWithSmallPhoto().log, ElementsAre(ErrorLine(text + ThumbOf("a.jpg", "XL")),
                                                     ErrorLine(text + ThumbOf("a.jpg", "S"))));
    ExpectFailed();
  }
}

TEST_F(PipelineTest, UnreadableThumbnailIsNotReportedToTheIndex) {
  box.Script("convert-thumb", "outputs rubbish\n");
  const RunResult run = RunWithSmallPhoto();
  ASSERT_EQ(run.log.size(), 1U);
  EXPECT_EQ(run.log[0].priority, 3);
  EXPECT_THAT(run.log[0].text,
              ::testing::MatchesRegex("[a-z_]+:[0-9]+ .Error. GetImageResolution: " +
                                      ThumbOf("a.jpg", "XL")));
  EXPECT_EQ(box.List(MetadataOf("a.jpg")), ThumbNames("XL S"));
}

TEST_F(PipelineTest, UnreadableSourceIsNotReportedEither) {
  const RunResult run = RunWith("a.png", "not an image");
  ASSERT_EQ(run.log.size(), 1U);
  EXPECT_THAT(
      run.log[0].text,
      ::testing::MatchesRegex("[a-z_]+:[0-9]+ .Error. GetImageResolution: /volume1/photo/a.png"));
}

}  // namespace
}  // namespace keldo::testing
