#include <gtest/gtest.h>

#include "convert/readers/readers.h"
#include "support/sample_files.h"

namespace keldo::convert {
namespace {

using testing::Data;
using testing::ReadWholeImage;
using testing::RefusalOf;
using testing::WebpFacts;
using testing::WebpFile;
using Kind = ImageError::Kind;

// With the mark that JPEG files have and ImageMagick expects.
Data Marked(const Data& exif) {
  Data block;
  testing::Append(block, std::string("Exif\0\0", 6));
  block.insert(block.end(), exif.begin(), exif.end());
  return block;
}

void ExpectLikeImageMagick(const WebpFacts& facts) {
  const Data file = WebpFile(facts);
  EXPECT_EQ(testing::LargestDifference(ReadWholeImage(file).rgb, testing::ImageMagickPixels(file)),
            0);
}

TEST(WebpReaderTest, ReadsLossyAndLosslessImages) {
  for (const bool lossless : {false, true}) {
    ExpectLikeImageMagick({.lossless = lossless});
    ExpectLikeImageMagick({.alpha = true, .lossless = lossless});
    ExpectLikeImageMagick({.width = 1, .height = 1, .lossless = lossless});
  }
}

TEST(WebpReaderTest, DescribesTheImage) {
  const ImageInfo opaque = ReadWholeImage(WebpFile({})).info;
  EXPECT_EQ(opaque.width, 40);
  EXPECT_EQ(opaque.height, 30);
  EXPECT_EQ(opaque.layout, PixelLayout::kRgb);
  EXPECT_FALSE(opaque.has_alpha_or_palette);
  EXPECT_EQ(opaque.orientation, 1);
  EXPECT_EQ(opaque.density, Density{});
  EXPECT_TRUE(opaque.icc.empty());
  EXPECT_TRUE(ReadWholeImage(WebpFile({.alpha = true})).info.has_alpha_or_palette);
}

TEST(WebpReaderTest, FindsProfileAndOrientation) {
  const Data exif = testing::ExifBlock({.orientation = 6, .numerator = 240, .denominator = 7});
  const ImageInfo info = ReadWholeImage(WebpFile({.icc = {7, 8, 9}, .exif = Marked(exif)})).info;
  EXPECT_EQ(info.icc, (std::vector<std::uint8_t>{7, 8, 9}));
  EXPECT_EQ(info.orientation, 6);
  EXPECT_EQ(info.density, (Density{.unit = 1, .x = 34, .y = 34}));
}

TEST(WebpReaderTest, IgnoresExifWithoutTheMark) {
  const Data exif = testing::ExifBlock({.orientation = 6});
  EXPECT_EQ(ReadWholeImage(WebpFile({.exif = exif})).info.orientation, 1);
  EXPECT_EQ(ReadWholeImage(WebpFile({.exif = {'E', 'x', 'i', 'f', 0, 0}})).info.orientation, 1);
}

TEST(WebpReaderTest, IgnoresChunksThatTheFlagsDoNotAnnounce) {
  Data file = WebpFile({.icc = {7, 8, 9}, .exif = Marked(testing::ExifBlock({.orientation = 6}))});
  file[20] = 0;
  const ImageInfo info = ReadWholeImage(file).info;
  EXPECT_TRUE(info.icc.empty());
  EXPECT_EQ(info.orientation, 1);
}

TEST(WebpReaderTest, RefusesAnimationsAsUnsupported) {
  EXPECT_EQ(RefusalOf(WebpFile({.animated = true})), Kind::kUnsupported);
}

TEST(WebpReaderTest, LimitsIncludeTheDecodersMemory) {
  constexpr std::int64_t kPixels = 1200;
  EXPECT_EQ(RefusalOf(WebpFile({}), {.side = 39}), Kind::kLimit);
  EXPECT_EQ(RefusalOf(WebpFile({}), {.memory_bytes = kPixels * 7 - 1}), Kind::kLimit);
  EXPECT_EQ(RefusalOf(WebpFile({}), {.memory_bytes = kPixels * 7}), std::nullopt);
  EXPECT_EQ(RefusalOf(WebpFile({.lossless = false}), {.memory_bytes = kPixels * 3}), std::nullopt);
  const Data transparent = WebpFile({.alpha = true, .lossless = false});
  EXPECT_EQ(RefusalOf(transparent, {.memory_bytes = kPixels * 9 - 1}), Kind::kLimit);
  EXPECT_EQ(RefusalOf(transparent, {.memory_bytes = kPixels * 9}), std::nullopt);
}

TEST(WebpReaderTest, ACutOffFileGivesNoImage) {
  Data file = WebpFile({.lossless = false});
  file.resize(file.size() * 9 / 10);
  EXPECT_EQ(RefusalOf(file), Kind::kCorrupt);
}

}  // namespace
}  // namespace keldo::convert
