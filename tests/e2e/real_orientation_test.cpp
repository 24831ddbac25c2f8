// Rotated thumbnails and RAW photos, with the real tools: new thumbnails have the right rotation.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "e2e/fixtures.h"
#include "e2e/real_sandbox.h"
#include "support/dng_writer.h"

namespace keldo::testing {
namespace {

using ::testing::IsEmpty;

CornerColours CornersOfThumb(const Sandbox& box, const std::string& path) {
  const auto image = DecodeJpeg(box.Read(path));
  return image ? Corners(*image) : CornerColours{};
}

// Adds old thumbnails of an image that was rotated by some degrees.
void AddOldThumbnails(const Sandbox& box, const std::string& photo, int degrees,
                      const Image& image) {
  for (const char* kind : {"XL", "B", "M", "L", "SM", "S"}) {
    box.Write(ThumbOf(photo, kind), EncodeJpeg(Rotated(degrees, image)));
    box.SetTime(ThumbOf(photo, kind), kPhotoTime - 1);
  }
}

TEST(RealOrientationTest, NewThumbnailsAreRotatedLikeTheOldOnes) {
  for (const int degrees : {0, 90, 180, 270}) {
    RealSandbox box;
    box.StartDaemon(AnswerVersion(1));
    const Image image = FourCorners(600, 400);
    box.AddPhoto("a.jpg", EncodeJpeg(image));
    AddOldThumbnails(box, "a.jpg", degrees, image);
    EXPECT_THAT(box.RunTwice(), IsEmpty());
    const CornerColours once = Corners(Rotated(degrees, image));
    for (const char* kind : {"XL", "L", "SM", "S"}) {
      EXPECT_LE(CornerDistance(CornersOfThumb(box, ThumbOf("a.jpg", kind)), once), 16)
          << degrees << kind;
      EXPECT_EQ(box.Status(ThumbOf("a.jpg", kind)).st_mode, S_IFREG | 0644U);
    }
    // Kept oddity: every thumbnail of phase 0 is rotated, even those made from the rotated XL one.
    const CornerColours twice = Corners(Rotated(2 * degrees % 360, image));
    for (const char* kind : {"B", "M"}) {
      EXPECT_LE(CornerDistance(CornersOfThumb(box, ThumbOf("a.jpg", kind)), twice), 16)
          << degrees << kind;
    }
    EXPECT_EQ(box.List(MetadataOf("a.jpg")), ThumbNames("XL L B M SM S"));
  }
}

// The colours of a decoded RAW photo are close enough to distinguish the quarters.
constexpr int kRawTolerance = 60;

TEST(RealRawTest, DecodedPhotosComeOutUpright) {
  RealSandbox box;
  const Image upright = FourCorners(400, 300);
  for (int orientation = 1; orientation <= 8; ++orientation) {
    DngOptions options;
    options.orientation = orientation;
    box.AddPhoto("o" + std::to_string(orientation) + ".dng",
                 EncodeDng(StoredWith(orientation, upright), options));
  }
  EXPECT_THAT(box.RunTwice(), IsEmpty());
  for (int orientation = 1; orientation <= 8; ++orientation) {
    ExpectThumbnails(box, MetadataOf("o" + std::to_string(orientation) + ".dng"),
                     {400, 300, kCornerColours, kRawTolerance});
  }
}

// The previews differ in colour from the sensor data, which shows what a thumbnail was made from.
TEST(RealRawTest, PreviewsComeOutUpright) {
  RealSandbox box;
  CornerColours colours = kCornerColours;
  std::swap(colours[0], colours[3]);
  const Image upright = FourCorners(1500, 1000, colours);
  for (int orientation = 1; orientation <= 8; ++orientation) {
    const Image stored = StoredWith(orientation, upright);
    DngOptions options;
    options.orientation = orientation;
    options.preview = EncodeJpeg(stored);
    options.preview_width = stored.width;
    options.preview_height = stored.height;
    box.AddPhoto("o" + std::to_string(orientation) + ".dng",
                 EncodeDng(StoredWith(orientation, FourCorners(120, 80)), options));
  }
  EXPECT_THAT(box.RunTwice(), IsEmpty());
  for (int orientation = 1; orientation <= 8; ++orientation) {
    ExpectThumbnails(box, MetadataOf("o" + std::to_string(orientation) + ".dng"),
                     {1500, 1000, colours});
  }
}

TEST(RealRawTest, SmallPreviewsAreNotUsed) {
  RealSandbox box;
  CornerColours colours = kCornerColours;
  std::swap(colours[0], colours[3]);
  DngOptions options;
  options.preview = EncodeJpeg(FourCorners(160, 120, colours));
  options.preview_width = 160;
  options.preview_height = 120;
  box.AddPhoto("a.dng", EncodeDng(FourCorners(400, 300), options));
  EXPECT_THAT(box.RunTwice(), IsEmpty());
  ExpectThumbnails(box, MetadataOf("a.dng"), {400, 300, kCornerColours, kRawTolerance});
}

TEST(RealRawTest, NewThumbnailsOfARawPhotoAreRotatedLikeTheOldOnes) {
  RealSandbox box;
  box.StartDaemon(AnswerVersion(1));
  box.AddPhoto("a.dng", EncodeDng(FourCorners(400, 300)));
  AddOldThumbnails(box, "a.dng", 180, FourCorners(400, 300));
  EXPECT_THAT(box.RunTwice(), IsEmpty());
  const CornerColours rotated = Corners(Rotated(180, FourCorners(4, 4)));
  for (const char* kind : {"XL", "L", "SM", "S"}) {
    EXPECT_LE(CornerDistance(CornersOfThumb(box, ThumbOf("a.dng", kind)), rotated), kRawTolerance);
  }
}

// An x3f photo, with a stand-in dcraw that delivers an image in dcraw's format.
TEST(RealRawTest, DcrawPhotosAreRendered) {
  RealSandbox box;
  box.UseRealToolsButDcraw();
  box.Write("/conf/full", EncodePpm(FourCorners(400, 300)));
  box.Script("dcraw", "when -w\nstdout-file /conf/full\nwhen -i\nstdout Output size: 400 x 300\n");
  box.AddPhoto("a.x3f", "x");
  EXPECT_THAT(box.RunTwice(), IsEmpty());
  ExpectThumbnails(box, MetadataOf("a.x3f"), {400, 300});
}

}  // namespace
}  // namespace keldo::testing
