#include <gtest/gtest.h>

#include "convert/readers/readers.h"
#include "support/sample_files.h"

namespace keldo::convert {
namespace {

using testing::Data;
using testing::HeifFacts;
using testing::HeifFile;
using testing::ReadWholeImage;
using testing::RefusalOf;
using Kind = ImageError::Kind;

// ImageMagick and libheif round colours differently.
constexpr int kRounding = 6;

void ExpectLikeImageMagick(const HeifFacts& facts) {
  const Data file = HeifFile(facts);
  EXPECT_LE(testing::LargestDifference(ReadWholeImage(file).rgb, testing::ImageMagickPixels(file)),
            kRounding);
}

TEST(HeifReaderTest, ReadsHeicAndAvif) {
  ExpectLikeImageMagick({});
  ExpectLikeImageMagick({.av1 = true});
}

TEST(HeifReaderTest, RowsAreRotatedUpright) {
  for (const int orientation : {2, 3, 6, 8}) {
    const HeifFacts facts{.orientation = orientation};
    ExpectLikeImageMagick(facts);
    const ImageInfo info = ReadWholeImage(HeifFile(facts)).info;
    EXPECT_EQ(info.orientation, 1);
    EXPECT_EQ(info.width, orientation >= 5 ? 48 : 64);
    EXPECT_EQ(info.height, orientation >= 5 ? 64 : 48);
  }
}

TEST(HeifReaderTest, TheExifTagDoesNotRotateTheImageAgain) {
  const Data exif = testing::ExifBlock({.orientation = 6, .numerator = 300, .denominator = 1});
  const ImageInfo info = ReadWholeImage(HeifFile({.orientation = 6, .exif = exif})).info;
  EXPECT_EQ(info.orientation, 1);
  EXPECT_EQ(info.width, 48);
  EXPECT_EQ(info.density, (Density{.unit = 1, .x = 300, .y = 300}));
}

TEST(HeifReaderTest, RoundsDeepImagesToEightBits) {
  const Data shallow = ReadWholeImage(HeifFile({.av1 = true})).rgb;
  const Data deep = ReadWholeImage(HeifFile({.av1 = true, .bits = 10})).rgb;
  EXPECT_LE(testing::LargestDifference(shallow, deep), kRounding);
}

TEST(HeifReaderTest, FlattensAlphaOntoWhite) {
  for (const int bits : {8, 10}) {
    const testing::Image image = ReadWholeImage(HeifFile({.alpha = true, .bits = bits}));
    EXPECT_TRUE(image.info.has_alpha_or_palette);
    // At x, y the colour is (3x, 4y, x + y) and alpha 255 - 2x.
    for (const int x : {4, 30, 60}) {
      const int y = 20;
      const std::uint8_t* pixel = image.rgb.data() + std::ptrdiff_t{3} * (y * 64 + x);
      const double alpha = (255 - 2 * x) / 255.0;
      EXPECT_NEAR(pixel[0], 3 * x * alpha + 2 * x, kRounding) << x;
      EXPECT_NEAR(pixel[1], 4 * y * alpha + 2 * x, kRounding) << x;
      EXPECT_NEAR(pixel[2], (x + y) * alpha + 2 * x, kRounding) << x;
    }
  }
}

TEST(HeifReaderTest, DescribesTheImage) {
  const ImageInfo info = ReadWholeImage(HeifFile({.icc = Data(200, 7)})).info;
  EXPECT_EQ(info.layout, PixelLayout::kRgb);
  EXPECT_FALSE(info.has_alpha_or_palette);
  EXPECT_EQ(info.icc, Data(200, 7));
  EXPECT_EQ(info.density, Density{});
  EXPECT_TRUE(ReadWholeImage(HeifFile({})).info.icc.empty()) << "colours named by number";
}

TEST(HeifReaderTest, ChecksTheLimits) {
  EXPECT_EQ(RefusalOf(HeifFile({}), {.side = 63}), Kind::kLimit);
  EXPECT_EQ(RefusalOf(HeifFile({}), {.pixels = 64 * 48 - 1}), Kind::kLimit);
  EXPECT_EQ(RefusalOf(HeifFile({}), {.memory_bytes = 64 * 48 * 6 - 1}), Kind::kLimit);
}

TEST(HeifReaderTest, ACutOffFileGivesNoImage) {
  Data file = HeifFile({});
  file.resize(file.size() * 9 / 10);
  EXPECT_EQ(RefusalOf(file), Kind::kCorrupt);
  file.resize(40);
  EXPECT_EQ(RefusalOf(file), Kind::kCorrupt);
}

}  // namespace
}  // namespace keldo::convert
