#include "support/natural_image.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace keldo::testing {
namespace {

TEST(NaturalPictureTest, IsTheSameEveryTime) {
  EXPECT_EQ(NaturalPicture(40, 30).pixels, NaturalPicture(40, 30).pixels);
  EXPECT_NE(NaturalPicture(40, 30, 1).pixels, NaturalPicture(40, 30, 2).pixels);
}

TEST(NaturalPictureTest, HasTheRequestedSize) {
  EXPECT_EQ(NaturalPicture(1, 1).pixels.size(), 1u);
  EXPECT_EQ(NaturalPicture(300, 1).pixels.size(), 300u);
}

TEST(NaturalPictureTest, IsMostlySoftWithSomeEdges) {
  const Picture picture = NaturalPicture(400, 300);
  int soft = 0;
  int edges = 0;
  for (int y = 0; y < picture.height; ++y) {
    for (int x = 1; x < picture.width; ++x) {
      const int step = std::abs(picture.At(x, y)[1] - picture.At(x - 1, y)[1]);
      soft += step < 8 ? 1 : 0;
      edges += step > 30 ? 1 : 0;
    }
  }
  EXPECT_GT(soft, 400 * 300 * 8 / 10);
  EXPECT_GT(edges, 400 * 300 / 200);
}

}  // namespace
}  // namespace keldo::testing
