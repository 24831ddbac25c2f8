#include <gtest/gtest.h>

#include "convert/readers/readers.h"
#include "support/sample_files.h"

namespace keldo::convert {
namespace {

using testing::AppendBig16;
using testing::AppendBig32;
using testing::Data;
using testing::PngChunk;
using testing::PngFile;
using testing::ReadWholeImage;
using testing::RefusalOf;
using Kind = ImageError::Kind;

constexpr int kGray = 0;
constexpr int kRgb = 2;
constexpr int kPalette = 3;
constexpr int kGrayAlpha = 4;
constexpr int kRgba = 6;

PngChunk PaletteChunk(int colours = 256) {
  Data content;
  for (int i = 0; i < colours * 3; ++i)
    content.push_back(static_cast<std::uint8_t>(i * 37));
  return {"PLTE", content};
}

PngChunk Words(const std::string& type, const std::vector<std::uint32_t>& values) {
  PngChunk chunk{type, {}};
  for (const std::uint32_t value : values)
    AppendBig16(chunk.content, value);
  return chunk;
}

PngChunk Gamma(std::uint32_t gamma) {
  PngChunk chunk{"gAMA", {}};
  AppendBig32(chunk.content, gamma);
  return chunk;
}

PngChunk Density(std::uint32_t x, std::uint32_t y, std::uint8_t unit) {
  PngChunk chunk{"pHYs", {}};
  AppendBig32(chunk.content, x);
  AppendBig32(chunk.content, y);
  chunk.content.push_back(unit);
  return chunk;
}

void ExpectLikeImageMagick(const testing::PngFacts& facts, int difference = 0) {
  const Data file = PngFile(facts);
  EXPECT_LE(testing::LargestDifference(ReadWholeImage(file).rgb, testing::ImageMagickPixels(file)),
            difference)
      << "colour " << facts.colour << " depth " << facts.depth << " interlaced "
      << facts.interlaced;
}

TEST(PngReaderTest, ReadsEveryDepthOfEveryColourType) {
  for (const bool interlaced : {false, true}) {
    for (const int depth : {1, 2, 4, 8, 16})
      ExpectLikeImageMagick({.depth = depth, .colour = kGray, .interlaced = interlaced});
    for (const int depth : {1, 2, 4, 8}) {
      ExpectLikeImageMagick({.depth = depth,
                             .colour = kPalette,
                             .interlaced = interlaced,
                             .chunks = {PaletteChunk(1 << depth)}});
    }
    for (const int colour : {kRgb, kGrayAlpha, kRgba}) {
      ExpectLikeImageMagick({.depth = 8, .colour = colour, .interlaced = interlaced});
      ExpectLikeImageMagick({.depth = 16, .colour = colour, .interlaced = interlaced}, 1);
    }
  }
}

TEST(PngReaderTest, ReadsInterlacedImagesWithEmptyPasses) {
  ExpectLikeImageMagick({.width = 1, .height = 1, .interlaced = true});
  ExpectLikeImageMagick({.width = 3, .height = 2, .colour = kRgba, .interlaced = true});
}

TEST(PngReaderTest, ReadsImagesWithATransparentColour) {
  ExpectLikeImageMagick({.colour = kRgb, .chunks = {Words("tRNS", {33, 44, 55})}});
  ExpectLikeImageMagick({.colour = kGray, .chunks = {Words("tRNS", {33})}});
  ExpectLikeImageMagick({.depth = 4, .colour = kGray, .chunks = {Words("tRNS", {5})}});
  EXPECT_TRUE(ReadWholeImage(PngFile({.colour = kRgb, .chunks = {Words("tRNS", {33, 44, 55})}}))
                  .info.has_alpha_or_palette);
}

TEST(PngReaderTest, ReadsPalettesWithTransparentColours) {
  Data alphas;
  for (int i = 0; i < 100; ++i)
    alphas.push_back(static_cast<std::uint8_t>(i * 2));
  ExpectLikeImageMagick({.colour = kPalette, .chunks = {PaletteChunk(), {"tRNS", alphas}}});
  ExpectLikeImageMagick(
      {.colour = kPalette, .chunks = {PaletteChunk(), {"tRNS", alphas}, {"bKGD", {5}}}});
}

TEST(PngReaderTest, TheBackgroundOfTheFileReplacesWhite) {
  const Data on_white = ReadWholeImage(PngFile({.colour = kRgba})).rgb;
  const testing::PngFacts facts{.colour = kRgba, .chunks = {Words("bKGD", {255, 0, 128})}};
  EXPECT_NE(ReadWholeImage(PngFile(facts)).rgb, on_white);
  ExpectLikeImageMagick(facts);
  ExpectLikeImageMagick({.colour = kGrayAlpha, .chunks = {Words("bKGD", {100})}});
  ExpectLikeImageMagick(
      {.depth = 16, .colour = kRgba, .chunks = {Words("bKGD", {65000, 300, 33000})}}, 1);
  ExpectLikeImageMagick({.colour = kRgb, .chunks = {Words("bKGD", {255, 0, 128})}});
}

TEST(PngReaderTest, ReportsAlphaAndPalettes) {
  const auto flag = [](const testing::PngFacts& facts) {
    return ReadWholeImage(PngFile(facts)).info.has_alpha_or_palette;
  };
  EXPECT_FALSE(flag({.colour = kRgb}));
  EXPECT_FALSE(flag({.depth = 16, .colour = kGray}));
  EXPECT_TRUE(flag({.depth = 8, .colour = kGray})) << "a palette of grays";
  EXPECT_TRUE(flag({.colour = kRgba}));
  EXPECT_TRUE(flag({.colour = kGrayAlpha}));
  EXPECT_TRUE(flag({.colour = kPalette, .chunks = {PaletteChunk()}}));
}

TEST(PngReaderTest, GrayRowsStayGray) {
  EXPECT_EQ(ReadWholeImage(PngFile({.colour = kGrayAlpha})).info.layout, PixelLayout::kGray);
  EXPECT_EQ(ReadWholeImage(PngFile({.colour = kRgba})).info.layout, PixelLayout::kRgb);
}

TEST(PngReaderTest, CutsDensityToWholeNumbersPerCentimetre) {
  const auto density = [](const PngChunk& chunk) {
    return ReadWholeImage(PngFile({.chunks = {chunk}})).info.density;
  };
  EXPECT_EQ(density(Density(11811, 5906, 1)), (convert::Density{.unit = 2, .x = 118, .y = 59}));
  EXPECT_EQ(density(Density(2, 1, 0)), (convert::Density{.unit = 0, .x = 2, .y = 1}));
  EXPECT_EQ(density(Density(0, 2899, 1)), convert::Density{});
  EXPECT_EQ(ReadWholeImage(PngFile({})).info.density, convert::Density{});
}

TEST(PngReaderTest, IgnoresGammaAndRefusesLinearLight) {
  ExpectLikeImageMagick({.chunks = {Gamma(45455)}});
  ExpectLikeImageMagick({.chunks = {Gamma(75000)}});
  ExpectLikeImageMagick({.chunks = {{"sRGB", {0}}, Gamma(100000)}});
  EXPECT_EQ(RefusalOf(PngFile({.chunks = {Gamma(75001)}})), Kind::kUnsupported);
  EXPECT_EQ(RefusalOf(PngFile({.chunks = {Gamma(100000)}})), Kind::kUnsupported);
}

TEST(PngReaderTest, IgnoresTheOrientationInAFile) {
  const PngChunk exif{"eXIf", testing::ExifBlock({.orientation = 6})};
  EXPECT_EQ(ReadWholeImage(PngFile({.chunks = {exif}})).info.orientation, 1);
}

TEST(PngReaderTest, ACutOffFileGivesNoImage) {
  Data file = PngFile({});
  file.resize(file.size() - 12);  // only the end mark is missing
  EXPECT_EQ(RefusalOf(file), Kind::kCorrupt);
  EXPECT_TRUE(testing::ImageMagickPixels(file).empty());
  file.resize(20);
  EXPECT_EQ(RefusalOf(file), Kind::kCorrupt);
}

TEST(PngReaderTest, AChecksumCountsOnlyWhereTheImageDependsOnIt) {
  const Data whole = PngFile({.chunks = {Density(11811, 5906, 1)}});
  Data file = whole;
  file[8 + 25 + 8 + 9] ^= 1U;  // of the density
  EXPECT_EQ(ReadWholeImage(file).info.density, convert::Density{});
  EXPECT_EQ(ReadWholeImage(file).rgb, ReadWholeImage(whole).rgb);
  file = whole;
  file[file.size() - 16] ^= 1U;  // of the pixels
  EXPECT_EQ(RefusalOf(file), Kind::kCorrupt);
}

TEST(PngReaderTest, ChecksTheLimitsFirst) {
  EXPECT_EQ(RefusalOf(PngFile({}), {.side = 39}), Kind::kLimit);
  EXPECT_EQ(RefusalOf(PngFile({}), {.pixels = 1199}), Kind::kLimit);
  EXPECT_EQ(RefusalOf(PngFile({}), {.memory_bytes = 120}), std::nullopt) << "one row is held";
  EXPECT_EQ(
      RefusalOf(PngFile({.interlaced = true}), {.memory_bytes = std::int64_t{3} * 40 * 30 - 1}),
      Kind::kLimit);
}

}  // namespace
}  // namespace keldo::convert
