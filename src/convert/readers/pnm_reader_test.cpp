#include <gtest/gtest.h>

#include "convert/readers/readers.h"
#include "support/reader_test.h"

namespace keldo::convert {
namespace {

using testing::Data;
using testing::ReadWholeImage;
using testing::RefusalOf;
using Kind = ImageError::Kind;

Data PnmFile(const std::string& header, std::size_t bytes) {
  Data file;
  testing::Append(file, header);
  for (std::size_t i = 0; i < bytes; ++i)
    file.push_back(static_cast<std::uint8_t>(i * 13 + i / 7));
  return file;
}

void ExpectLikeImageMagick(const Data& file, int difference) {
  EXPECT_LE(testing::LargestDifference(ReadWholeImage(file).rgb, testing::ImageMagickPixels(file)),
            difference);
}

TEST(PnmReaderTest, ReadsColourAndGrayOfEightAndSixteenBits) {
  ExpectLikeImageMagick(PnmFile("P6\n7 5\n255\n", 105), 0);
  ExpectLikeImageMagick(PnmFile("P5\n7 5\n255\n", 35), 0);
  ExpectLikeImageMagick(PnmFile("P6\n7 5\n65535\n", 210), 0);
  ExpectLikeImageMagick(PnmFile("P5\n7 5\n65535\n", 70), 0);
}

TEST(PnmReaderTest, ScalesOtherRangesAndClampsSamplesAboveThem) {
  ExpectLikeImageMagick(PnmFile("P5\n7 5\n100\n", 35), 1);
  ExpectLikeImageMagick(PnmFile("P6\n7 5\n4095\n", 210), 1);
  Data file = PnmFile("P5 3 1 100\n", 0);
  file.insert(file.end(), {0, 50, 200});
  EXPECT_EQ(ReadWholeImage(file).rgb, (Data{0, 0, 0, 128, 128, 128, 255, 255, 255}));
  file = PnmFile("P5 3 1 1000\n", 0);
  file.insert(file.end(), {0, 0, 0x01, 0xF4, 0xFF, 0xFF});
  EXPECT_EQ(ReadWholeImage(file).rgb, (Data{0, 0, 0, 128, 128, 128, 255, 255, 255}));
}

TEST(PnmReaderTest, AcceptsCommentsAndBlanksAnywhereInTheHeader) {
  ExpectLikeImageMagick(PnmFile("P6#one\n# two 99\n\t7# three\r\n 5\n255\n", 105), 0);
}

TEST(PnmReaderTest, ASingleBlankEndsTheHeader) {
  Data file = PnmFile("P5 2 1 255 ", 0);
  file.insert(file.end(), {' ', '#'});
  EXPECT_EQ(ReadWholeImage(file).rgb, (Data{32, 32, 32, 35, 35, 35}));
}

TEST(PnmReaderTest, ReadsTheFirstOfSeveralImages) {
  Data file = PnmFile("P5 2 1 255\n", 2);
  const Data first = ReadWholeImage(file).rgb;
  testing::Append(file, "P5 1 1 255\nx");
  EXPECT_EQ(ReadWholeImage(file).rgb, first);
}

TEST(PnmReaderTest, DescribesTheImage) {
  const ImageInfo gray = ReadWholeImage(PnmFile("P5 7 5 255\n", 35)).info;
  EXPECT_EQ(gray.layout, PixelLayout::kGray);
  EXPECT_FALSE(gray.has_alpha_or_palette);
  EXPECT_EQ(gray.width, 7);
  EXPECT_EQ(gray.height, 5);
  EXPECT_EQ(gray.density, Density{});
  EXPECT_EQ(ReadWholeImage(PnmFile("P6 7 5 255\n", 105)).info.layout, PixelLayout::kRgb);
}

TEST(PnmReaderTest, RefusesDamagedFiles) {
  for (const char* header :
       {"P6", "P6 ", "P6 7", "P6 7 5", "P6 7 5 255", "P6 x 5 255\n", "P6 -7 5 255\n", "P6 7 5 0\n",
        "P6 7 5 65536\n", "P6 0 5 255\n", "P6 7 5 255x", "P6 # 7 5 255"}) {
    EXPECT_EQ(RefusalOf(PnmFile(header, 0)), Kind::kCorrupt) << header;
  }
  EXPECT_EQ(RefusalOf(PnmFile("P6 7 5 255\n", 104)), Kind::kCorrupt);
  EXPECT_EQ(RefusalOf(PnmFile("P5 7 5 256\n", 69)), Kind::kCorrupt);
  EXPECT_EQ(RefusalOf(PnmFile("P6 70000 5 255\n", 0)), Kind::kLimit);
  EXPECT_EQ(RefusalOf(PnmFile("P6 99999999999999999999 5 255\n", 0)), Kind::kLimit);
  EXPECT_EQ(RefusalOf(PnmFile("P6 60000 60000 255\n", 0)), Kind::kLimit);
}

}  // namespace
}  // namespace keldo::convert
