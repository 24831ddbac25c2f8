#include "convert/pixels/turn.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "support/pictures.h"

namespace keldo::convert {
namespace {

using keldo::testing::Picture;
using keldo::testing::Rgb;

// Keeps what it is given.
class Collector : public RowSink {
 public:
  explicit Collector(Picture& picture) : picture_(picture) {}
  void Take(const std::uint8_t* row) override {
    for (int x = 0; x < picture_.width; ++x)
      picture_.pixels.push_back({row[3 * x], row[3 * x + 1], row[3 * x + 2]});
  }
  void Finish() override { finished_ = true; }
  ~Collector() override { EXPECT_TRUE(finished_); }
  Collector(const Collector&) = delete;
  Collector& operator=(const Collector&) = delete;

 private:
  Picture& picture_;
  bool finished_ = false;
};

// Every pixel another colour.
Picture Numbered(int width, int height) {
  Picture picture{width, height, {}};
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x)
      picture.pixels.push_back({static_cast<std::uint8_t>(x), static_cast<std::uint8_t>(y), 7});
  }
  return picture;
}

Picture Apply(const Turn& turn, const Picture& picture) {
  const Size size{picture.width, picture.height};
  const Size turned = turn.SizeOf(size);
  Picture result{turned.width, turned.height, {}};
  const auto turner = MakeTurner(turn, size, 3, std::make_unique<Collector>(result));
  for (int y = 0; y < picture.height; ++y) {
    std::vector<std::uint8_t> row;
    for (int x = 0; x < picture.width; ++x) {
      const Rgb pixel = picture.At(x, y);
      row.insert(row.end(), pixel.begin(), pixel.end());
    }
    turner->Take(row.data());
  }
  turner->Finish();
  return result;
}

TEST(TurnTest, BringsEveryOrientationUpright) {
  for (const auto& [width, height] : {std::pair{37, 20}, {1, 9}, {50, 1}}) {
    const Picture upright = Numbered(width, height);
    for (int orientation = 1; orientation <= 8; ++orientation) {
      const Picture stored = keldo::testing::StoredWith(orientation, upright);
      const Picture result = Apply(Turn::FromOrientation(orientation), stored);
      EXPECT_EQ(result.width, width) << orientation;
      EXPECT_EQ(result.pixels, upright.pixels) << orientation;
    }
  }
}

TEST(TurnTest, RotatesClockwise) {
  const Picture picture = Numbered(33, 18);
  for (const int degrees : {0, 90, 180, 270}) {
    EXPECT_EQ(Apply(Turn{}.Rotated(degrees), picture).pixels,
              keldo::testing::Turned(degrees, picture).pixels)
        << degrees;
  }
}

TEST(TurnTest, AddsUp) {
  EXPECT_TRUE(Turn{}.Rotated(90).Rotated(270).IsIdentity());
  EXPECT_TRUE(Turn{}.Flopped().Flopped().IsIdentity());
  EXPECT_EQ(Turn{}.Rotated(-90), Turn{}.Rotated(270));
  EXPECT_EQ(Turn{}.Rotated(450), Turn{}.Rotated(90));
  EXPECT_EQ(Turn{}.Rotated(90).Flopped(), Turn::FromOrientation(5));
  EXPECT_EQ(Turn{}.Flopped().Rotated(90), Turn::FromOrientation(7));
  EXPECT_EQ(Turn::FromOrientation(0), Turn{});
  EXPECT_EQ(Turn::FromOrientation(9), Turn{});
}

}  // namespace
}  // namespace keldo::convert
