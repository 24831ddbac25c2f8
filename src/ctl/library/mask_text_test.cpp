#include "ctl/library/mask_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace keldo::ctl {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(MaskText, ListsKindsFromSmallestToLargest) {
  EXPECT_THAT(KindNames(63), ElementsAre("S", "SM", "M", "B", "L", "XL"));
  EXPECT_THAT(KindNames(0), IsEmpty());
  EXPECT_EQ(KindsText(1), "S");
  EXPECT_EQ(KindsText(2), "M");
  EXPECT_EQ(KindsText(4), "B");
  EXPECT_EQ(KindsText(8), "L");
  EXPECT_EQ(KindsText(16), "XL");
  EXPECT_EQ(KindsText(32), "SM");
  EXPECT_EQ(KindsText(35), "S, SM, M");
  EXPECT_EQ(KindsText(0), "no thumbnails");
}

TEST(MaskText, ReadsANumberOrAListOfKinds) {
  EXPECT_EQ(ParseMask("0"), 0);
  EXPECT_EQ(ParseMask("63"), 63);
  EXPECT_EQ(ParseMask("0x23"), 35);
  EXPECT_EQ(ParseMask("0X3f"), 63);
  EXPECT_EQ(ParseMask("S"), 1);
  EXPECT_EQ(ParseMask("XL,m,Sm"), 50);
  EXPECT_EQ(ParseMask("S,S"), 1);
}

TEST(MaskText, RefusesEverythingElse) {
  for (const char* text :
       {"", "64", "-1", "0x40", "0x", "1.5", "S,", ",S", "S M", "XXL", "3 ", "S,3", "all"}) {
    EXPECT_EQ(ParseMask(text), std::nullopt) << text;
  }
}

}  // namespace
}  // namespace keldo::ctl
