#include "convert/readers/reader_tools.h"

#include <gtest/gtest.h>

#include "support/reader_test.h"

namespace keldo::convert {
namespace {

using testing::Data;
using testing::ExifBlock;

constexpr Density kOf96{.unit = 1, .x = 96, .y = 96};

TEST(OrientationOfTest, ReadsEveryOrientationInBothByteOrders) {
  for (std::uint16_t orientation = 1; orientation <= 8; ++orientation) {
    EXPECT_EQ(OrientationOf(ExifBlock({.orientation = orientation})), orientation);
    EXPECT_EQ(OrientationOf(ExifBlock({.orientation = orientation, .big_endian = true})),
              orientation);
  }
}

TEST(OrientationOfTest, InvalidOrientationsCountAsOne) {
  EXPECT_EQ(OrientationOf(ExifBlock({.orientation = 0})), 1);
  EXPECT_EQ(OrientationOf(ExifBlock({.orientation = 9})), 1);
  EXPECT_EQ(OrientationOf({}), 1);
  Data other = ExifBlock({.orientation = 6});
  other[10] = 0x13;  // another tag
  EXPECT_EQ(OrientationOf(other), 1);
  other = ExifBlock({.orientation = 6});
  other[12] = 2;  // text
  EXPECT_EQ(OrientationOf(other), 1);
  other = ExifBlock({.orientation = 6});
  other[0] = 'X';
  EXPECT_EQ(OrientationOf(other), 1);
}

TEST(OrientationOfTest, ReadsACutOffBlockAsFarAsItGoes) {
  const Data whole = ExifBlock({.orientation = 6, .numerator = 240, .denominator = 7});
  for (std::size_t size = 0; size < whole.size(); ++size) {
    // A copy, so that the sanitizer sees a read past its end.
    const Data cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
    EXPECT_EQ(OrientationOf(cut), size >= 22 ? 6 : 1) << size;
    (void)DensityWithExif(cut, {});
  }
}

TEST(OrientationOfTest, IgnoresAnOffsetBeyondTheBlock) {
  Data block = ExifBlock({.orientation = 6});
  block[7] = 0xFF;
  EXPECT_EQ(OrientationOf(block), 1);
  block[7] = 0;
  block[4] = 0;  // the directory would lie in the header
  EXPECT_EQ(OrientationOf(block), 1);
}

TEST(DensityWithExifTest, ReplacesTheValuesOfTheHeader) {
  EXPECT_EQ(DensityWithExif(ExifBlock({.numerator = 240, .denominator = 7}), kOf96),
            (Density{.unit = 1, .x = 34, .y = 34}));
  EXPECT_EQ(DensityWithExif(ExifBlock({.numerator = 300, .denominator = 1, .unit = 3}), {}),
            (Density{.unit = 2, .x = 300, .y = 300}));
  EXPECT_EQ(DensityWithExif(
                ExifBlock({.numerator = 300, .denominator = 1, .unit = 1, .big_endian = true}), {}),
            (Density{.unit = 0, .x = 300, .y = 300}));
}

TEST(DensityWithExifTest, ABlockWithoutDensityChangesNothing) {
  EXPECT_EQ(DensityWithExif(ExifBlock({.orientation = 6}), kOf96), kOf96);
  EXPECT_EQ(DensityWithExif({}, kOf96), kOf96);
  EXPECT_EQ(DensityWithExif(ExifBlock({.orientation = 6}), {}), Density{});
}

TEST(DensityWithExifTest, AUnitAloneIsNotADensity) {
  Data block = ExifBlock({.numerator = 300, .denominator = 1, .unit = 3});
  block[22] = 0;  // no longer the width's density
  EXPECT_EQ(DensityWithExif(block, {}), Density{});
}

TEST(DensityWithExifTest, ADensityOfZeroCountsAsNone) {
  EXPECT_EQ(DensityWithExif(ExifBlock({.numerator = 0, .denominator = 1}), kOf96), Density{});
}

}  // namespace
}  // namespace keldo::convert
