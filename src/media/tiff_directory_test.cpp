#include "media/tiff_directory.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace keldo::media {
namespace {

using Bytes = std::vector<std::uint8_t>;

// Two entries, an orientation of 6 and a resolution of 300/2, in both byte orders.
const Bytes kLittle{'I',  'I', 42, 0, 8,  0, 0, 0,  // header
                    2,    0,                        // entries
                    0x12, 1,   3,  0, 1,  0, 0, 0, 6,    0, 0, 0, 0x1A, 1, 5, 0,
                    1,    0,   0,  0, 34, 0, 0, 0, 0x2C, 1, 0, 0, 2,    0, 0, 0};
const Bytes kBig{'M', 'M', 0,    42, 0, 0, 0, 8, 0, 2, 1, 0x12, 0,  3, 0, 0, 0,    1, 0, 6, 0,
                 0,   1,   0x1A, 0,  5, 0, 0, 0, 1, 0, 0, 0,    34, 0, 0, 1, 0x2C, 0, 0, 0, 2};

TEST(TiffDirectoryTest, ReadsBothByteOrders) {
  for (const Bytes& tiff : {kLittle, kBig}) {
    const TiffDirectory directory(tiff);
    EXPECT_EQ(directory.Integer(TiffDirectory::kOrientation), 6U);
    EXPECT_EQ(directory.Rational(TiffDirectory::kXResolution), 150.0);
    EXPECT_EQ(directory.Integer(TiffDirectory::kXResolution), std::nullopt) << "another type";
    EXPECT_EQ(directory.Rational(TiffDirectory::kYResolution), std::nullopt) << "not there";
  }
}

TEST(TiffDirectoryTest, ReadsLongNumbersToo) {
  Bytes tiff = kLittle;
  tiff[12] = 4;
  EXPECT_EQ(TiffDirectory(tiff).Integer(TiffDirectory::kOrientation), 6U);
}

TEST(TiffDirectoryTest, AFractionOfNothingIsNone) {
  Bytes tiff = kLittle;
  tiff[38] = 0;
  EXPECT_EQ(TiffDirectory(tiff).Rational(TiffDirectory::kXResolution), std::nullopt);
}

TEST(TiffDirectoryTest, WhatIsCutOffIsNotThere) {
  for (std::size_t size = 0; size < kLittle.size(); ++size) {
    const Bytes cut(kLittle.begin(), kLittle.begin() + static_cast<std::ptrdiff_t>(size));
    const TiffDirectory directory(cut);
    EXPECT_EQ(directory.Integer(TiffDirectory::kOrientation).has_value(), size >= 22) << size;
    EXPECT_EQ(directory.Rational(TiffDirectory::kXResolution).has_value(), false) << size;
  }
}

TEST(TiffDirectoryTest, OffsetsBeyondTheEndLeadNowhere) {
  for (const std::size_t place : {4U, 30U}) {
    Bytes tiff = kLittle;
    for (std::size_t i = 0; i < 4; ++i)
      tiff[place + i] = 0xFF;
    EXPECT_EQ(TiffDirectory(tiff).Rational(TiffDirectory::kXResolution), std::nullopt);
  }
}

TEST(TiffDirectoryTest, SomethingElseHasNoEntries) {
  Bytes tiff = kLittle;
  tiff[2] = 43;
  EXPECT_EQ(TiffDirectory(tiff).Integer(TiffDirectory::kOrientation), std::nullopt);
  EXPECT_EQ(TiffDirectory({}).Integer(TiffDirectory::kOrientation), std::nullopt);
}

}  // namespace
}  // namespace keldo::media
