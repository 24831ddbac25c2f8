#include <gtest/gtest.h>

#include "convert/readers/readers.h"
#include "support/reader_test.h"

namespace keldo::convert {
namespace {

using testing::AppendLittle16;
using testing::AppendLittle32;
using testing::Data;
using testing::ReadWholeImage;
using testing::RefusalOf;
using Kind = ImageError::Kind;

struct BmpFacts {
  int width = 7;  // rows are filled up to whole words
  int height = 5;
  int bits = 24;
  bool top_down = false;
  bool os2 = false;
  std::uint32_t compression = 0;
  std::uint32_t density = 0;  // a metre
  bool ramp = true;           // of the palette
};

Data BmpFile(const BmpFacts& facts) {
  const int channels = facts.bits / 8;
  const std::uint32_t header = facts.os2 ? 12 : 40;
  const std::uint32_t palette = facts.bits == 8 ? 256 * (facts.os2 ? 3 : 4) : 0;
  Data file;
  testing::Append(file, "BM");
  AppendLittle32(file, 0);
  AppendLittle32(file, 0);
  AppendLittle32(file, 14 + header + palette);
  AppendLittle32(file, header);
  if (facts.os2) {
    AppendLittle16(file, static_cast<std::uint32_t>(facts.width));
    AppendLittle16(file, static_cast<std::uint32_t>(facts.height));
  } else {
    AppendLittle32(file, static_cast<std::uint32_t>(facts.width));
    AppendLittle32(file, static_cast<std::uint32_t>(facts.top_down ? -facts.height : facts.height));
  }
  AppendLittle16(file, 1);
  AppendLittle16(file, static_cast<std::uint32_t>(facts.bits));
  if (!facts.os2) {
    for (const std::uint32_t number :
         {facts.compression, 0U, facts.density, facts.density, palette / 4, 0U})
      AppendLittle32(file, number);
  }
  for (std::uint32_t i = 0; i < palette / (facts.os2 ? 3U : 4U); ++i) {
    const auto value = static_cast<std::uint8_t>(facts.ramp ? i : 255 - i);
    file.insert(file.end(), {value, value, value});
    if (!facts.os2) file.push_back(0);
  }
  const Data pixels = testing::SamplePixels(facts.width, facts.height, channels);
  const std::ptrdiff_t stride = std::ptrdiff_t{facts.width} * channels;
  for (int y = 0; y < facts.height; ++y) {
    file.insert(file.end(), pixels.begin() + y * stride, pixels.begin() + (y + 1) * stride);
    while ((file.size() - 14 - header - palette) % 4 != 0)
      file.push_back(0xEE);
  }
  for (unsigned i = 0; i < 4; ++i)
    file[2 + i] = static_cast<std::uint8_t>(file.size() >> (8 * i));
  return file;
}

void ExpectLikeImageMagick(const BmpFacts& facts) {
  const Data file = BmpFile(facts);
  EXPECT_EQ(testing::LargestDifference(ReadWholeImage(file).rgb, testing::ImageMagickPixels(file)),
            0);
}

TEST(BmpReaderTest, ReadsColourAndGrayOfBothHeaders) {
  ExpectLikeImageMagick({});
  ExpectLikeImageMagick({.os2 = true});
  ExpectLikeImageMagick({.bits = 8});
  ExpectLikeImageMagick({.bits = 8, .os2 = true});
  ExpectLikeImageMagick({.width = 1, .height = 1});
  ExpectLikeImageMagick({.width = 1, .height = 1, .top_down = true});
}

TEST(BmpReaderTest, ReadsBitmapsStoredFromTheTop) {
  ExpectLikeImageMagick({.top_down = true});
  EXPECT_NE(ReadWholeImage(BmpFile({.top_down = true})).rgb, ReadWholeImage(BmpFile({})).rgb);
}

TEST(BmpReaderTest, DescribesTheImage) {
  const ImageInfo colour = ReadWholeImage(BmpFile({})).info;
  EXPECT_EQ(colour.layout, PixelLayout::kBgr);
  EXPECT_EQ(colour.full_width, 7);
  EXPECT_EQ(colour.full_height, 5);
  EXPECT_FALSE(colour.has_alpha_or_palette);
  EXPECT_EQ(colour.density, Density{});
  const ImageInfo gray = ReadWholeImage(BmpFile({.bits = 8})).info;
  EXPECT_EQ(gray.layout, PixelLayout::kGray);
  EXPECT_TRUE(gray.has_alpha_or_palette);
}

TEST(BmpReaderTest, DensityIsPerCentimetre) {
  EXPECT_EQ(ReadWholeImage(BmpFile({.density = 9699})).info.density,
            (Density{.unit = 2, .x = 96, .y = 96}));
}

TEST(BmpReaderTest, RefusesOtherBitmapsAsUnsupported) {
  EXPECT_EQ(RefusalOf(BmpFile({.compression = 1})), Kind::kUnsupported);
  EXPECT_EQ(RefusalOf(BmpFile({.bits = 8, .ramp = false})), Kind::kUnsupported);
  EXPECT_EQ(RefusalOf(BmpFile({.bits = 16})), Kind::kUnsupported);
  EXPECT_EQ(RefusalOf(BmpFile({.bits = 32})), Kind::kUnsupported);
  Data header = BmpFile({});
  header[14] = 124;
  EXPECT_EQ(RefusalOf(header), Kind::kUnsupported);
}

TEST(BmpReaderTest, ChecksTheFileSizeFirst) {
  Data file = BmpFile({});
  file.pop_back();
  EXPECT_EQ(RefusalOf(file), Kind::kCorrupt);
  file = BmpFile({});
  file[10] = 10;  // pixels in the header
  EXPECT_EQ(RefusalOf(file), Kind::kCorrupt);
  file = BmpFile({});
  file[13] = 0x7F;  // pixels behind the file
  EXPECT_EQ(RefusalOf(file), Kind::kCorrupt);
  EXPECT_EQ(RefusalOf(BmpFile({.width = 0})), Kind::kCorrupt);
  file = BmpFile({});
  file[25] = 0x80;  // the lowest height there is
  EXPECT_EQ(RefusalOf(file), Kind::kLimit);
  EXPECT_EQ(RefusalOf(BmpFile({}), {.side = 6}), Kind::kLimit);
}

}  // namespace
}  // namespace keldo::convert
