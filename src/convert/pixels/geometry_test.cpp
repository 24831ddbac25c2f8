#include "convert/pixels/geometry.h"

#include <gtest/gtest.h>

namespace keldo::convert {
namespace {

TEST(GeometryTest, FitsIntoTheBoxOrCoversIt) {
  EXPECT_EQ(ThumbnailSize({4000, 3000}, {640, 640, false}), (Size{640, 480}));
  EXPECT_EQ(ThumbnailSize({4000, 3000}, {640, 640, true}), (Size{853, 640}));
  EXPECT_EQ(ThumbnailSize({3000, 4000}, {640, 640, true}), (Size{640, 853}));
  EXPECT_EQ(ThumbnailSize({4000, 3000}, {640, 100, false}), (Size{133, 100}));
}

TEST(GeometryTest, RoundsHalvesUp) {
  EXPECT_EQ(ThumbnailSize({200, 101}, {100, 100, false}), (Size{100, 51}));
  EXPECT_EQ(ThumbnailSize({200, 99}, {100, 100, false}), (Size{100, 50}));
}

TEST(GeometryTest, NeverEnlarges) {
  EXPECT_EQ(ThumbnailSize({300, 200}, {640, 640, false}), (Size{300, 200}));
  EXPECT_EQ(ThumbnailSize({300, 200}, {640, 640, true}), (Size{300, 200}));
  EXPECT_EQ(ThumbnailSize({2000, 100}, {640, 640, true}), (Size{2000, 100}));
}

TEST(GeometryTest, ASideIsNeverNothing) {
  EXPECT_EQ(ThumbnailSize({20000, 10}, {120, 120, false}), (Size{120, 1}));
  EXPECT_EQ(ThumbnailSize({1, 1}, {120, 120, true}), (Size{1, 1}));
}

}  // namespace
}  // namespace keldo::convert
