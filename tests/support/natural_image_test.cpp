#include "support/natural_image.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace keldo::testing {
namespace {

TEST(NaturalImageTest, IsTheSameEveryTime) {
  EXPECT_EQ(NaturalImage(40, 30).pixels, NaturalImage(40, 30).pixels);
  EXPECT_NE(NaturalImage(40, 30, 1).pixels, NaturalImage(40, 30, 2).pixels);
}

TEST(NaturalImageTest, HasTheRequestedSize) {
  EXPECT_EQ(NaturalImage(1, 1).pixels.size(), 1u);
  EXPECT_EQ(NaturalImage(300, 1).pixels.size(), 300u);
}

TEST(NaturalImageTest, IsMostlySoftWithSomeEdges) {
  const Image image = NaturalImage(400, 300);
  int soft = 0;
  int edges = 0;
  for (int y = 0; y < image.height; ++y) {
    for (int x = 1; x < image.width; ++x) {
      const int step = std::abs(image.At(x, y)[1] - image.At(x - 1, y)[1]);
      soft += step < 8 ? 1 : 0;
      edges += step > 30 ? 1 : 0;
    }
  }
  EXPECT_GT(soft, 400 * 300 * 8 / 10);
  EXPECT_GT(edges, 400 * 300 / 200);
}

}  // namespace
}  // namespace keldo::testing
