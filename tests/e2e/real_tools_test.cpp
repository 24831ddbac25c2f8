// Complete runs on generated photos with the machine's own ImageMagick and djpeg.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>

#include "e2e/fixtures.h"
#include "e2e/real_sandbox.h"

namespace keldo::testing {
namespace {

using ::testing::IsEmpty;

// The four quarters as a camera stores them with this orientation.
CornerColours StoredColours(int orientation) {
  return Corners(StoredWith(orientation, FourCorners(4, 4)));
}

// A JPEG file that is upright and has this size once its orientation tag is applied.
std::string Tagged(int orientation, int width, int height) {
  const bool swapped = orientation >= 5;
  const Image stored =
      FourCorners(swapped ? height : width, swapped ? width : height, StoredColours(orientation));
  return EncodeJpeg(stored, {.quality = 90, .orientation = orientation});
}

TEST(RealToolsTest, SmallJpegsComeOutUpright) {
  RealSandbox box;
  for (int orientation = 0; orientation <= 8; ++orientation) {
    box.AddPhoto("o" + std::to_string(orientation) + ".jpg",
                 Tagged(std::max(orientation, 1), 1500, 1000));
  }
  EXPECT_THAT(box.RunTwice(), IsEmpty());
  for (int orientation = 0; orientation <= 8; ++orientation) {
    ExpectThumbnails(box, MetadataOf("o" + std::to_string(orientation) + ".jpg"), {1500, 1000});
  }
}

TEST(RealToolsTest, LargeJpegsComeOutUprightThroughDjpeg) {
  RealSandbox box;
  for (int orientation = 1; orientation <= 8; ++orientation) {
    box.AddPhoto("o" + std::to_string(orientation) + ".jpg", Tagged(orientation, 2800, 2560));
  }
  EXPECT_THAT(box.RunTwice(), IsEmpty());
  for (int orientation = 1; orientation <= 8; ++orientation) {
    ExpectThumbnails(box, MetadataOf("o" + std::to_string(orientation) + ".jpg"), {2800, 2560});
  }
}

TEST(RealToolsTest, SmallPhotosAreNeverEnlarged) {
  RealSandbox box;
  box.AddPhoto("tall.jpg", EncodeJpeg(FourCorners(50, 300)));
  box.AddPhoto("tiny.jpg", EncodeJpeg(FourCorners(32, 16)));
  EXPECT_THAT(box.RunTwice(), IsEmpty());
  ExpectThumbnails(box, MetadataOf("tall.jpg"), {50, 300});
  ExpectThumbnails(box, MetadataOf("tiny.jpg"), {32, 16});
}

// Makes a photo of every other format from an image of four quarters.
class FormatTest : public ::testing::Test {
 protected:
  FormatTest() { box.Write("/conf/upright.ppm", EncodePpm(FourCorners(600, 400))); }

  // Converts with ImageMagick. The arguments are separated by spaces.
  void Make(const std::string& arguments, const std::string& name) {
    std::vector<std::string> command = Words("/usr/bin/convert /conf/upright.ppm " + arguments);
    command.push_back(std::string(kPhotoDir) + "/" + name);
    box.Tool(command);
    box.SetTime(command.back(), kPhotoTime);
  }

  void ExpectUpright(const std::string& name, const CornerColours& colours = kCornerColours,
                     int tolerance = 16) {
    EXPECT_THAT(box.RunTwice(), IsEmpty());
    ExpectThumbnails(box, MetadataOf(name), {600, 400, colours, tolerance});
  }

  RealSandbox box;
};

TEST_F(FormatTest, Png) {
  Make("", "a.png");
  ExpectUpright("a.png");
}

TEST_F(FormatTest, TransparentPngIsFlattenedOntoWhite) {
  constexpr Rgb kOpaque = {255, 255, 255};
  box.Write("/conf/mask.ppm",
            EncodePpm(FourCorners(600, 400, {{kOpaque, kOpaque, kOpaque, {0, 0, 0}}})));
  Make("/conf/mask.ppm -compose CopyOpacity -composite", "a.png");
  CornerColours colours = kCornerColours;
  colours[3] = {255, 255, 255};
  ExpectUpright("a.png", colours);
}

TEST_F(FormatTest, FirstFrameOfAnAnimatedGif) {
  Make("-size 600x400 xc:black -set delay 10", "a.gif");
  ExpectUpright("a.gif");
}

TEST_F(FormatTest, FirstPageOfATiff) {
  Make("-size 300x200 xc:black", "a.tif");
  ExpectUpright("a.tif");
}

TEST_F(FormatTest, Webp) {
  Make("-quality 95", "a.webp");
  ExpectUpright("a.webp");
}

TEST_F(FormatTest, Bmp) {
  Make("", "a.bmp");
  ExpectUpright("a.bmp");
}

TEST_F(FormatTest, Heic) {
  box.Write("/conf/upright.jpg", EncodeJpeg(FourCorners(600, 400), {.quality = 98}));
  box.Tool(
      {"/usr/bin/heif-enc", "-q", "90", "-o", "/volume1/photo/IMG_1.HEIC", "/conf/upright.jpg"});
  box.SetTime("/volume1/photo/IMG_1.HEIC", kPhotoTime);
  ExpectUpright("IMG_1.HEIC");
}

TEST_F(FormatTest, GrayJpeg) {
  CornerColours grays = kCornerColours;
  for (Rgb& colour : grays) {
    const double gray = 0.299 * colour[0] + 0.587 * colour[1] + 0.114 * colour[2];
    colour.fill(static_cast<std::uint8_t>(gray));
  }
  box.AddPhoto("a.jpg", EncodeJpeg(FourCorners(600, 400),
                                   {.quality = 90, .orientation = 0, .icc = "", .gray = true}));
  ExpectUpright("a.jpg", grays);
}

TEST_F(FormatTest, CmykJpeg) {
  Make("-colorspace CMYK", "a.jpg");
  ExpectUpright("a.jpg", kCornerColours, 30);
}

TEST_F(FormatTest, FileWithTheExtensionOfAnotherFormat) {
  Make("", "a.png");
  box.AddPhoto("b.jpg", box.Read("/volume1/photo/a.png"));
  ExpectUpright("a.png");
  ExpectThumbnails(box, MetadataOf("b.jpg"), {600, 400});
}

// The header of a display's colour profile, and some content.
std::string ColourProfile() {
  std::string icc(400, 'p');
  icc.replace(0, 4, std::string("\0\0\x01\x90", 4));  // Its length.
  icc.replace(12, 12, "mntrRGB XYZ ");
  icc.replace(36, 4, "acsp");
  return icc;
}

TEST_F(FormatTest, ColourProfileIsKeptInEveryThumbnail) {
  const std::string icc = ColourProfile();
  box.AddPhoto("a.jpg", EncodeJpeg(FourCorners(600, 400),
                                   {.quality = 90, .orientation = 3, .icc = icc, .gray = false}));
  EXPECT_THAT(box.RunTwice(), IsEmpty());
  for (const char* kind : {"XL", "L", "B", "M", "SM", "S"}) {
    const std::string thumbnail = box.Read(ThumbOf("a.jpg", kind));
    EXPECT_NE(thumbnail.find(icc), std::string::npos) << kind;
    EXPECT_EQ(thumbnail.find("Exif"), std::string::npos) << kind;
  }
}

// Our converter attaches any profile. ImageMagick cannot read one as minimal as this and refuses to
// attach it to djpeg's bitmap. The photo itself is then converted, and the profile is kept anyway.
TEST_F(FormatTest, ColourProfileThatCannotBeAttachedIsKept) {
  const std::string icc = ColourProfile();
  box.AddPhoto("a.jpg", EncodeJpeg(FourCorners(2600, 2600),
                                   {.quality = 90, .orientation = 0, .icc = icc, .gray = false}));
  const auto log = box.RunTwice();
  ASSERT_EQ(log.size(), UsesImageMagick() ? 1U : 0U) << "the failed attempt";
  for (const LogLine& line : log) {
    EXPECT_THAT(line.text,
                ::testing::StartsWith("process:63 [Warning] /usr/keldo/bin/convert-thumb"));
  }
  for (const char* kind : {"XL", "S"}) {
    EXPECT_NE(box.Read(ThumbOf("a.jpg", kind)).find(icc), std::string::npos) << kind;
  }
}

TEST_F(FormatTest, PhotoWithABrokenColourProfileIsProcessed) {
  box.AddPhoto(
      "a.jpg",
      EncodeJpeg(FourCorners(600, 400),
                 {.quality = 90, .orientation = 0, .icc = std::string(400, 'p'), .gray = false}));
  ExpectUpright("a.jpg");
}

// A damaged photo either gets all its thumbnails, from what can be read, or is marked as failed.
// Other photos are not affected.
TEST(RealToolsTest, DamagedPhotosDoNotStopTheRun) {
  RealSandbox box;
  const std::string whole = EncodeJpeg(FourCorners(600, 400));
  box.AddPhoto("a-cut.jpg", whole.substr(0, whole.size() / 2));
  box.AddPhoto("b-header.jpg", whole.substr(0, 100));
  box.AddPhoto("c-empty.jpg", "");
  box.AddPhoto("d-empty.png", "");
  box.AddPhoto("e-text.png", "not an image");
  box.AddPhoto("f-large-cut.jpg", JpegHeaderOf(5000, 4000));
  box.AddPhoto("g-whole.jpg", whole);
  box.RunTwice();
  ExpectThumbnails(box, MetadataOf("g-whole.jpg"), {600, 400});
  for (const char* name : {"a-cut.jpg", "b-header.jpg", "c-empty.jpg", "d-empty.png", "e-text.png",
                           "f-large-cut.jpg"}) {
    const auto names = box.List(MetadataOf(name));
    const bool failed = box.Exists(MarkerOf(name, "XL"));
    for (const char* kind : {"XL", "L", "B", "M", "SM", "S"}) {
      EXPECT_EQ(box.Exists(MarkerOf(name, kind)), failed) << name << kind;
      EXPECT_NE(box.Exists(ThumbOf(name, kind)), failed) << name << kind;
      if (failed) continue;
      EXPECT_TRUE(DecodeJpeg(box.Read(ThumbOf(name, kind)))) << name << kind;
    }
  }
  for (const char* name : {"b-header.jpg", "c-empty.jpg", "d-empty.png", "e-text.png"}) {
    EXPECT_TRUE(box.Exists(MarkerOf(name, "XL"))) << name;
  }
}

TEST(RealToolsTest, FinishedFolderStartsNoChild) {
  RealSandbox box;
  const std::time_t next_year = std::time(nullptr) + 365L * 24 * 3600;
  box.SetTime(box.AddPhoto("ahead.jpg", EncodeJpeg(FourCorners(600, 400))), next_year);
  box.AddPhoto("now.jpg", EncodeJpeg(FourCorners(600, 400)));
  EXPECT_THAT(box.RunTwice(), IsEmpty());
  ExpectThumbnails(box, MetadataOf("ahead.jpg"), {600, 400});
  box.UseStandIns();
  EXPECT_THAT(box.RunOn().invocations, IsEmpty());
  for (const char* kind : {"XL", "L", "B", "M", "SM", "S"}) {
    EXPECT_EQ(box.Status(ThumbOf("ahead.jpg", kind)).st_mtime, next_year) << kind;
  }
}

TEST(RealToolsTest, FullDiskLeavesNoBrokenThumbnail) {
  RealSandbox box;
  box.AddPhoto("a.png", EncodeJpeg(FourCorners(1600, 1200)));
  box.AddPhoto("b.png", EncodeJpeg(FourCorners(1600, 1200)));
  box.MountMemory(MetadataOf("a.png"), 4 * kPage);
  EXPECT_EQ(box.RunOn().exit_status, 0);
  const std::string kept = Sandbox::KeptDirectory(MetadataOf("a.png"));
  EXPECT_TRUE(box.Exists(kept + "/KELDOPHOTO_THUMB_XL.fail"));
  ExpectNoBrokenThumbnail(box, kept);
  EXPECT_TRUE(DecodeJpeg(box.Read(ThumbOf("b.png", "XL"))));
}

}  // namespace
}  // namespace keldo::testing
