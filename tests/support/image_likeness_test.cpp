#include "support/image_likeness.h"

#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>

#include "support/natural_image.h"

namespace keldo::testing {
namespace {

Image Changed(Image image, int by) {
  for (Rgb& pixel : image.pixels) {
    for (std::uint8_t& channel : pixel)
      channel = static_cast<std::uint8_t>(channel + by);
  }
  return image;
}

TEST(ImageLikenessTest, EqualImagesHaveTheHighestLikeness) {
  const Image image = NaturalImage(50, 40);
  EXPECT_TRUE(std::isinf(Psnr(image, image)));
  EXPECT_DOUBLE_EQ(Ssim(image, image), 1);
}

TEST(ImageLikenessTest, PsnrIsComputedFromTheMeanSquare) {
  const Image gray = Plain(20, 10, {100, 100, 100});
  // 20 log10(255 / difference).
  EXPECT_NEAR(Psnr(gray, Changed(gray, 1)), 48.1308, 1e-4);
  EXPECT_NEAR(Psnr(gray, Changed(gray, -10)), 28.1308, 1e-4);
  // One channel of one pixel in two hundred: the mean square is 100 / 600.
  Image one = gray;
  one.pixels[37][2] = 110;
  EXPECT_NEAR(Psnr(gray, one), 55.9123, 1e-4);
  EXPECT_NEAR(Psnr(Plain(9, 9, {0, 0, 0}), Plain(9, 9, {255, 255, 255})), 0, 1e-9);
}

TEST(ImageLikenessTest, SsimOfPlainImagesDependsOnTheirBrightness) {
  // (2 * 100 * 110 + 6.5025) / (100^2 + 110^2 + 6.5025), the other factor being 1.
  EXPECT_NEAR(Ssim(Plain(30, 30, {100, 100, 100}), Plain(30, 30, {110, 110, 110})),
              22006.5025 / 22106.5025, 1e-9);
}

TEST(ImageLikenessTest, SsimOfAnInvertedPatternIsNegative) {
  Image pattern = Plain(16, 16, {0, 0, 0});
  for (std::size_t i = 0; i < pattern.pixels.size(); i += 2)
    pattern.pixels[i] = {255, 255, 255};
  Image inverted = pattern;
  for (Rgb& pixel : inverted.pixels)
    pixel = pixel[0] == 0 ? Rgb{255, 255, 255} : Rgb{0, 0, 0};
  // Equal means, and a covariance of minus the variance 127.5^2.
  const double twice = 2 * 127.5 * 127.5;
  EXPECT_NEAR(Ssim(pattern, inverted), (58.5225 - twice) / (58.5225 + twice), 1e-6);
}

TEST(ImageLikenessTest, SsimSeesBlurThatPsnrForgives) {
  const Image sharp = NaturalImage(200, 150);
  Image blurred = sharp;
  for (std::size_t i = 1; i + 1 < sharp.pixels.size(); ++i) {
    for (std::size_t channel = 0; channel < 3; ++channel) {
      const int sum =
          sharp.pixels[i - 1][channel] + sharp.pixels[i][channel] + sharp.pixels[i + 1][channel];
      blurred.pixels[i][channel] = static_cast<std::uint8_t>(sum / 3);
    }
  }
  EXPECT_LT(Ssim(sharp, blurred), 0.98);
}

TEST(ImageLikenessTest, SmallImagesAreOneWindow) {
  EXPECT_DOUBLE_EQ(Ssim(Plain(1, 1, {9, 9, 9}), Plain(1, 1, {9, 9, 9})), 1);
  EXPECT_LT(Ssim(Plain(3, 1, {9, 9, 9}), Plain(3, 1, {99, 99, 99})), 0.5);
}

TEST(ImageLikenessTest, EveryPartOfTheImageCounts) {
  const Image plain = Plain(21, 13, {80, 80, 80});
  Image last = plain;
  last.pixels.back() = {255, 255, 255};
  EXPECT_LT(Ssim(plain, last), 1);
}

TEST(ImageLikenessTest, ImagesOfDifferentSizesCannotBeCompared) {
  const Image image = Plain(4, 6, {1, 2, 3});
  EXPECT_THROW(static_cast<void>(Psnr(image, Plain(6, 4, {1, 2, 3}))), std::invalid_argument);
  EXPECT_THROW(static_cast<void>(Ssim(image, Plain(6, 4, {1, 2, 3}))), std::invalid_argument);
  EXPECT_THROW(static_cast<void>(Ssim({}, {})), std::invalid_argument);
}

}  // namespace
}  // namespace keldo::testing
