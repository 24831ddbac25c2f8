#include <gtest/gtest.h>

#include "convert/readers/readers.h"
#include "support/sample_files.h"

namespace keldo::convert {
namespace {

using testing::Data;
using testing::GifFacts;
using testing::GifFile;
using testing::ReadWholeImage;
using testing::RefusalOf;
using Kind = ImageError::Kind;

void ExpectLikeImageMagick(const GifFacts& facts) {
  const Data file = GifFile(facts);
  EXPECT_EQ(testing::LargestDifference(ReadWholeImage(file).rgb, testing::ImageMagickPixels(file)),
            0);
}

TEST(GifReaderTest, ReadsGlobalAndLocalPalettes) {
  ExpectLikeImageMagick({});
  ExpectLikeImageMagick({.frames = {{.own_palette = true}}});
  ExpectLikeImageMagick({.palette = false, .frames = {{.own_palette = true}}});
}

TEST(GifReaderTest, ReadsInterlacedImages) {
  ExpectLikeImageMagick({.frames = {{.interlaced = true}}});
  ExpectLikeImageMagick({.frames = {{.width = 3, .height = 2, .interlaced = true}}});
}

TEST(GifReaderTest, TransparentPixelsShowTheBackgroundOfTheFile) {
  ExpectLikeImageMagick({.frames = {{.transparent = 8}}});
  EXPECT_NE(ReadWholeImage(GifFile({.frames = {{.transparent = 8}}})).rgb,
            ReadWholeImage(GifFile({})).rgb);
}

TEST(GifReaderTest, TransparentPixelsOfAFrameWithItsOwnPaletteAreWhite) {
  const GifFacts facts{.frames = {{.transparent = 8, .own_palette = true}}};
  ExpectLikeImageMagick(facts);
  const Data rgb = ReadWholeImage(GifFile(facts)).rgb;
  const std::size_t pixel = std::size_t{3} * (40 + 1);  // of value 8
  EXPECT_EQ((Data{rgb[pixel], rgb[pixel + 1], rgb[pixel + 2]}), (Data{255, 255, 255}));
}

TEST(GifReaderTest, ATransparentBackgroundIsBlack) {
  const GifFacts facts{.background = 8, .frames = {{.transparent = 8}}};
  ExpectLikeImageMagick(facts);
}

TEST(GifReaderTest, TheFirstFrameIsReadWhereverItLies) {
  const GifFacts small{.frames = {{.left = 5, .top = 4, .width = 20, .height = 15}, {}}};
  ExpectLikeImageMagick(small);
  EXPECT_EQ(ReadWholeImage(GifFile(small)).info.width, 20);
  EXPECT_EQ(ReadWholeImage(GifFile(small)).info.height, 15);
  ExpectLikeImageMagick({.frames = {{.left = 5, .top = 4, .width = 60, .height = 50}}});
}

TEST(GifReaderTest, DescribesTheImage) {
  const ImageInfo info = ReadWholeImage(GifFile({})).info;
  EXPECT_EQ(info.layout, PixelLayout::kRgb);
  EXPECT_TRUE(info.has_alpha_or_palette);
  EXPECT_EQ(info.density, Density{});
}

TEST(GifReaderTest, ReadsFilesWithoutEndMarks) {
  const Data whole = GifFile({});
  Data file = whole;
  file.pop_back();
  EXPECT_EQ(ReadWholeImage(file).rgb, ReadWholeImage(whole).rgb);
  file.pop_back();
  EXPECT_EQ(ReadWholeImage(file).rgb, ReadWholeImage(whole).rgb);
}

TEST(GifReaderTest, RefusesDamagedFiles) {
  const Data whole = GifFile({});
  Data file(whole.begin(), whole.end() - 300);
  EXPECT_EQ(RefusalOf(file), Kind::kCorrupt);
  EXPECT_EQ(RefusalOf(GifFile({.frames = {}})), Kind::kCorrupt);
  EXPECT_EQ(RefusalOf(GifFile({.palette = false})), Kind::kCorrupt);
  EXPECT_EQ(RefusalOf(GifFile({.frames = {{.width = 0}}})), Kind::kCorrupt);
  EXPECT_EQ(RefusalOf(GifFile({.frames = {{.own_palette = true, .colours = 2}}})), Kind::kCorrupt)
      << "pixels without a colour";
}

TEST(GifReaderTest, ChecksTheLimits) {
  EXPECT_EQ(RefusalOf(GifFile({}), {.side = 39}), Kind::kLimit);
  EXPECT_EQ(RefusalOf(GifFile({}), {.memory_bytes = 1199}), std::nullopt);
  EXPECT_EQ(RefusalOf(GifFile({.frames = {{.interlaced = true}}}), {.memory_bytes = 1199}),
            Kind::kLimit);
}

}  // namespace
}  // namespace keldo::convert
