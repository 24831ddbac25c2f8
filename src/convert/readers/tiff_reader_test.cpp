#include <gtest/gtest.h>

#include <algorithm>

#include "convert/readers/readers.h"
#include "support/sample_files.h"

namespace keldo::convert {
namespace {

using testing::Data;
using testing::ReadWholeImage;
using testing::RefusalOf;
using testing::TiffFacts;
using testing::TiffFile;
using Kind = ImageError::Kind;

constexpr int kLzw = 5;
constexpr int kJpeg = 7;
constexpr int kDeflate = 8;
constexpr int kWhiteIsZero = 0;
constexpr int kBlackIsZero = 1;
constexpr int kPalette = 3;
constexpr int kCmyk = 5;
constexpr int kYcbcr = 6;

void ExpectLikeImageMagick(const TiffFacts& facts, int difference = 0) {
  const Data file = TiffFile(facts);
  EXPECT_LE(testing::LargestDifference(ReadWholeImage(file).rgb, testing::ImageMagickPixels(file)),
            difference)
      << "photometric " << facts.photometric << " samples " << facts.samples << " bits "
      << facts.bits << " compression " << facts.compression << " tile " << facts.tile;
}

TEST(TiffReaderTest, ReadsGrayColourAndPalettes) {
  ExpectLikeImageMagick({});
  ExpectLikeImageMagick({.bits = 16});
  ExpectLikeImageMagick({.samples = 1, .photometric = kBlackIsZero});
  ExpectLikeImageMagick({.samples = 1, .bits = 16, .photometric = kBlackIsZero});
  ExpectLikeImageMagick({.samples = 1, .photometric = kWhiteIsZero});
  ExpectLikeImageMagick({.samples = 1, .bits = 16, .photometric = kWhiteIsZero});
  ExpectLikeImageMagick({.samples = 1, .photometric = kPalette});
}

TEST(TiffReaderTest, ReadsStripsAndTilesOfEveryCompression) {
  for (const int compression : {1, kLzw, kDeflate}) {
    ExpectLikeImageMagick({.compression = compression});
    ExpectLikeImageMagick({.compression = compression, .tile = 16});
    ExpectLikeImageMagick({.bits = 16, .compression = compression, .tile = 16});
  }
  ExpectLikeImageMagick({.compression = kJpeg, .tile = 16}, 1);
  ExpectLikeImageMagick({.width = 1, .height = 1, .tile = 64});
  ExpectLikeImageMagick({.width = 33, .height = 17, .tile = 16});
}

TEST(TiffReaderTest, FlattensAlphaOntoWhite) {
  ExpectLikeImageMagick({.samples = 4, .extra_sample = 2});
  ExpectLikeImageMagick({.samples = 2, .photometric = kBlackIsZero, .extra_sample = 2});
  ExpectLikeImageMagick({.samples = 4, .bits = 16, .extra_sample = 2}, 1);
}

TEST(TiffReaderTest, DoesNotMultiplyPremultipliedColoursAgain) {
  Data pixels;
  for (int i = 0; i < 40 * 30; ++i) {
    const auto alpha = static_cast<std::uint8_t>(i);
    pixels.insert(pixels.end(),
                  {static_cast<std::uint8_t>(alpha / 2), alpha, std::uint8_t{0}, alpha});
  }
  ExpectLikeImageMagick({.samples = 4, .extra_sample = 1, .pixels = pixels}, 1);
}

TEST(TiffReaderTest, DescribesTheImage) {
  const ImageInfo colour =
      ReadWholeImage(TiffFile({.orientation = 6, .density = 150.7F, .icc = {1, 2, 3}})).info;
  EXPECT_EQ(colour.layout, PixelLayout::kRgb);
  EXPECT_EQ(colour.width, 40);
  EXPECT_EQ(colour.height, 30);
  EXPECT_EQ(colour.orientation, 6);
  EXPECT_EQ(colour.density, (Density{.unit = 1, .x = 150, .y = 150}));
  EXPECT_EQ(colour.icc, (std::vector<std::uint8_t>{1, 2, 3}));
  EXPECT_FALSE(colour.has_alpha_or_palette);
  const ImageInfo gray = ReadWholeImage(TiffFile({.samples = 1, .photometric = kBlackIsZero})).info;
  EXPECT_EQ(gray.layout, PixelLayout::kGray);
  EXPECT_FALSE(gray.has_alpha_or_palette);
  EXPECT_EQ(gray.density, Density{});
  EXPECT_TRUE(
      ReadWholeImage(TiffFile({.samples = 1, .photometric = kPalette})).info.has_alpha_or_palette);
  EXPECT_TRUE(
      ReadWholeImage(TiffFile({.samples = 4, .extra_sample = 2})).info.has_alpha_or_palette);
}

TEST(TiffReaderTest, DensityKeepsItsUnit) {
  EXPECT_EQ(ReadWholeImage(TiffFile({.density = 118, .density_unit = 3})).info.density,
            (Density{.unit = 2, .x = 118, .y = 118}));
  EXPECT_EQ(ReadWholeImage(TiffFile({.density = 118, .density_unit = 1})).info.density,
            (Density{.unit = 0, .x = 118, .y = 118}));
}

TEST(TiffReaderTest, ReadsTheFirstPage) {
  EXPECT_EQ(ReadWholeImage(TiffFile({.pages = 3})).rgb, ReadWholeImage(TiffFile({})).rgb);
}

TEST(TiffReaderTest, RefusesOtherPagesAsUnsupported) {
  EXPECT_EQ(RefusalOf(TiffFile({.samples = 4, .photometric = kCmyk})), Kind::kUnsupported);
  EXPECT_EQ(RefusalOf(TiffFile({.photometric = kYcbcr})), Kind::kUnsupported);
  EXPECT_EQ(RefusalOf(TiffFile({.samples = 4, .extra_sample = 0})), Kind::kUnsupported);
  EXPECT_EQ(RefusalOf(TiffFile({.planar = 2})), Kind::kUnsupported);
  EXPECT_EQ(RefusalOf(TiffFile({.subfile = 1})), Kind::kUnsupported) << "a preview";
  EXPECT_EQ(RefusalOf(TiffFile({.bits = 32})), Kind::kUnsupported);
}

TEST(TiffReaderTest, ChecksTheLimits) {
  EXPECT_EQ(RefusalOf(TiffFile({}), {.side = 39}), Kind::kLimit);
  EXPECT_EQ(RefusalOf(TiffFile({.tile = 64}), {.memory_bytes = std::int64_t{64} * 64 * 3}),
            Kind::kLimit)
      << "a row of tiles and a tile";
  EXPECT_EQ(RefusalOf(TiffFile({.tile = 64}), {.side = 63}), Kind::kLimit) << "a tile";
}

TEST(TiffReaderTest, ACutOffFileGivesNoImage) {
  Data file = TiffFile({});
  file.resize(file.size() - 60);  // in the directory, which is behind the pixels
  EXPECT_EQ(RefusalOf(file), Kind::kCorrupt);
}

TEST(TiffReaderTest, RefusesDamagedPixels) {
  for (const int tile : {0, 16}) {
    Data file = TiffFile({.compression = kDeflate, .tile = tile});
    std::fill_n(file.begin() + 8, 40, std::uint8_t{0xFF});
    EXPECT_EQ(RefusalOf(file), Kind::kCorrupt) << tile;
  }
}

}  // namespace
}  // namespace keldo::convert
