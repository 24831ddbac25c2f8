#include "thumbs/thumb_kinds.h"

#include <gtest/gtest.h>
#include <syslog.h>

#include <array>
#include <string>
#include <vector>

#include "fakes/core_test.h"

namespace keldo {
namespace {

using ThumbKindTest = testing::CoreTest;

TEST_F(ThumbKindTest, KindsAreInTheOrderOfTheirBits) {
  const std::vector<std::array<std::string, 3>> expected = {
      {"120x120", "KELDOPHOTO_THUMB_S.jpg", "KELDOPHOTO:THUMB_S.jpg"},
      {"320x320", "KELDOPHOTO_THUMB_M.jpg", "KELDOPHOTO:THUMB_M.jpg"},
      {"640x640", "KELDOPHOTO_THUMB_B.jpg", "KELDOPHOTO:THUMB_B.jpg"},
      {"800x800", "KELDOPHOTO_THUMB_L.jpg", "KELDOPHOTO:THUMB_L.jpg"},
      {"1280x1280", "KELDOPHOTO_THUMB_XL.jpg", "KELDOPHOTO:THUMB_XL.jpg"},
      {"240x240", "KELDOPHOTO_THUMB_SM.jpg", "KELDOPHOTO:THUMB_SM.jpg"}};
  ASSERT_EQ(kThumbKindTable.size(), expected.size());
  for (std::size_t i = 0; i < expected.size(); ++i) {
    const ThumbKindInfo& row = kThumbKindTable[i];
    EXPECT_EQ(row.kind, static_cast<int>(i));
    EXPECT_EQ((std::array<std::string, 3>{row.box, row.underscore_name, row.colon_name}),
              expected[i]);
  }
  ExpectNoLog();
}

TEST_F(ThumbKindTest, AKindIsWantedByItsOwnBitAlone) {
  for (const ThumbKindInfo& row : kThumbKindTable) {
    const int bit = 1 << row.kind;
    for (const char* name : {row.underscore_name, row.colon_name}) {
      EXPECT_TRUE(IsKindWanted(name, bit)) << name;
      EXPECT_TRUE(IsKindWanted(name, -1)) << name;
      EXPECT_FALSE(IsKindWanted(name, ~bit)) << name;
      EXPECT_FALSE(IsKindWanted(name, 0)) << name;
    }
  }
  ExpectNoLog();
}

TEST_F(ThumbKindTest, TheColonSpellingOfXlHasBitFour) {
  EXPECT_TRUE(IsKindWanted("KELDOPHOTO:THUMB_XL.jpg", 16));
  EXPECT_FALSE(IsKindWanted("KELDOPHOTO:THUMB_XL.jpg", 15));
  EXPECT_TRUE(IsKindWanted("KELDOPHOTO_THUMB_SM.jpg", 32));
  EXPECT_FALSE(IsKindWanted("KELDOPHOTO_THUMB_SM.jpg", 31));
}

TEST_F(ThumbKindTest, UnknownNamesAreLoggedAndNotWanted) {
  for (const char* name :
       {"keldophoto:thumb_xl.jpg", "KELDOPHOTO_THUMB_S.JPG", "KELDOPHOTO_THUMB_S",
        "KELDOPHOTO_THUMB_S.jpg2", "KELDOPHOTO_THUMB_XS.jpg", "x%s", ""}) {
    testing::ClearSyslog();
    EXPECT_FALSE(IsKindWanted(name, kAllKinds)) << name;
    ExpectOneLog(LOG_ERR, std::string("keldomk_util:118 [Error] invalid thumb filename: ") + name);
  }
}

TEST_F(ThumbKindTest, SizesAreInOrder) {
  std::vector<std::string> names;
  for (const ThumbKindInfo& kind : kKindsBySize)
    names.emplace_back(kind.short_name);
  EXPECT_EQ(names, (std::vector<std::string>{"S", "SM", "M", "B", "L", "XL"}));
  EXPECT_EQ(BoxSide(InfoOf(THUMB_XL)), 1280);
  EXPECT_EQ(kAllKinds, 63);
}

TEST_F(ThumbKindTest, AKindIsFoundByEitherSpelling) {
  EXPECT_EQ(FindKind("KELDOPHOTO_THUMB_B.jpg"), &InfoOf(THUMB_B));
  EXPECT_EQ(FindKind("KELDOPHOTO:THUMB_B.jpg"), &InfoOf(THUMB_B));
  EXPECT_EQ(FindKind("KELDOPHOTO_THUMB_B.fail"), nullptr);
  ExpectNoLog();
}

}  // namespace
}  // namespace keldo
