#include "convert/pixels/rotation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "support/images.h"

namespace keldo::convert {
namespace {

using keldo::testing::Image;
using keldo::testing::Rgb;

// Keeps the rows that it receives.
class Collector : public RowSink {
 public:
  explicit Collector(Image& image) : image_(image) {}
  void AddRow(const std::uint8_t* row) override {
    for (int x = 0; x < image_.width; ++x)
      image_.pixels.push_back({row[3 * x], row[3 * x + 1], row[3 * x + 2]});
  }
  void Finish() override { finished_ = true; }
  ~Collector() override { EXPECT_TRUE(finished_); }
  Collector(const Collector&) = delete;
  Collector& operator=(const Collector&) = delete;

 private:
  Image& image_;
  bool finished_ = false;
};

// Every pixel has a different colour.
Image Numbered(int width, int height) {
  Image image{width, height, {}};
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x)
      image.pixels.push_back({static_cast<std::uint8_t>(x), static_cast<std::uint8_t>(y), 7});
  }
  return image;
}

Image Apply(const Rotation& rotation, const Image& image) {
  const Size size{image.width, image.height};
  const Size rotated = rotation.SizeOf(size);
  Image result{rotated.width, rotated.height, {}};
  const auto rotator = MakeRotator(rotation, size, 3, std::make_unique<Collector>(result));
  for (int y = 0; y < image.height; ++y) {
    std::vector<std::uint8_t> row;
    for (int x = 0; x < image.width; ++x) {
      const Rgb pixel = image.At(x, y);
      row.insert(row.end(), pixel.begin(), pixel.end());
    }
    rotator->AddRow(row.data());
  }
  rotator->Finish();
  return result;
}

TEST(RotationTest, BringsEveryOrientationUpright) {
  for (const auto& [width, height] : {std::pair{37, 20}, {1, 9}, {50, 1}}) {
    const Image upright = Numbered(width, height);
    for (int orientation = 1; orientation <= 8; ++orientation) {
      const Image stored = keldo::testing::StoredWith(orientation, upright);
      const Image result = Apply(Rotation::FromOrientation(orientation), stored);
      EXPECT_EQ(result.width, width) << orientation;
      EXPECT_EQ(result.pixels, upright.pixels) << orientation;
    }
  }
}

TEST(RotationTest, RotatesClockwise) {
  const Image image = Numbered(33, 18);
  for (const int degrees : {0, 90, 180, 270}) {
    EXPECT_EQ(Apply(Rotation{}.Rotated(degrees), image).pixels,
              keldo::testing::Rotated(degrees, image).pixels)
        << degrees;
  }
}

TEST(RotationTest, RotationsAndMirrorsCombine) {
  EXPECT_TRUE(Rotation{}.Rotated(90).Rotated(270).IsIdentity());
  EXPECT_TRUE(Rotation{}.Flopped().Flopped().IsIdentity());
  EXPECT_EQ(Rotation{}.Rotated(-90), Rotation{}.Rotated(270));
  EXPECT_EQ(Rotation{}.Rotated(450), Rotation{}.Rotated(90));
  EXPECT_EQ(Rotation{}.Rotated(90).Flopped(), Rotation::FromOrientation(5));
  EXPECT_EQ(Rotation{}.Flopped().Rotated(90), Rotation::FromOrientation(7));
  EXPECT_EQ(Rotation::FromOrientation(0), Rotation{});
  EXPECT_EQ(Rotation::FromOrientation(9), Rotation{});
}

}  // namespace
}  // namespace keldo::convert
