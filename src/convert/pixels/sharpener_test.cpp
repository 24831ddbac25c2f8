#include "convert/pixels/sharpener.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "convert/pixels/filter_weights.h"

namespace keldo::convert {
namespace {

using Image = std::vector<double>;

TEST(BlurKernelTest, ASmallRadiusGivesThreeWeights) {
  const std::vector<std::int16_t> kernel = BlurKernel(0.5, 0.5);
  ASSERT_EQ(kernel.size(), 3U);
  EXPECT_NEAR(kernel[0] / static_cast<double>(kWeightOne), 0.1533, 0.0001);
  EXPECT_NEAR(kernel[1] / static_cast<double>(kWeightOne), 0.6935, 0.0001);
  EXPECT_EQ(kernel[0] + kernel[1] + kernel[2], kWeightOne);
}

TEST(BlurKernelTest, TheRadiusDecidesTheWidth) {
  EXPECT_EQ(BlurKernel(1, 1).size(), 3U);
  EXPECT_EQ(BlurKernel(1.2, 1).size(), 5U);
  EXPECT_EQ(BlurKernel(7, 2).size(), 15U);
}

TEST(BlurKernelTest, WithoutARadiusItIsAsWideAsVisible) {
  for (const double sigma : {1.0, 5.0}) {
    const std::vector<std::int16_t> kernel = BlurKernel(0, sigma);
    EXPECT_LT(kernel.front(), 8) << sigma;
    EXPECT_EQ(kernel.size() % 2, 1U);
  }
  EXPECT_LT(BlurKernel(0, 1).size(), BlurKernel(0, 3).size());
}

TEST(BlurKernelTest, ExtremesStayFinite) {
  EXPECT_EQ(BlurKernel(1, 0).at(1), kWeightOne - 1);
  EXPECT_EQ(BlurKernel(1e9, 1000).size(), 511U);
  EXPECT_EQ(BlurKernel(0, 1e9).size(), 511U);
}

Image RandomImage(const Size& size, int channels) {
  std::mt19937 random(3);
  std::uniform_int_distribution<int> any(0, kLargestSample);
  Image image(static_cast<std::size_t>(size.width * size.height * channels));
  for (double& sample : image)
    sample = any(random);
  return image;
}

Image ExactlySharpened(const Image& image, const Size& size, int channels,
                       const Sharpening& sharpening) {
  const std::vector<std::int16_t> kernel = BlurKernel(sharpening.radius, sharpening.sigma);
  const int aside = static_cast<int>(kernel.size() / 2);
  const auto at = [&](int x, int y, int c) {
    return image[static_cast<std::size_t>(
        (std::clamp(y, 0, size.height - 1) * size.width + std::clamp(x, 0, size.width - 1)) *
            channels +
        c)];
  };
  Image result;
  for (int y = 0; y < size.height; ++y) {
    for (int x = 0; x < size.width; ++x) {
      for (int c = 0; c < channels; ++c) {
        double blurred = 0;
        for (int dy = -aside; dy <= aside; ++dy) {
          for (int dx = -aside; dx <= aside; ++dx) {
            blurred += at(x + dx, y + dy, c) * kernel[static_cast<std::size_t>(dx + aside)] *
                       kernel[static_cast<std::size_t>(dy + aside)] / kWeightOne / kWeightOne;
          }
        }
        const double difference = at(x, y, c) - blurred;
        const bool is_enough = 2 * std::abs(difference) >= sharpening.threshold * kLargestSample;
        result.push_back(std::clamp<double>(
            at(x, y, c) + (is_enough ? sharpening.gain * difference : 0), 0, kLargestSample));
      }
    }
  }
  return result;
}

Image Sharpened(const Image& image, const Size& size, int channels, const Sharpening& sharpening,
                const RowKernels& kernels) {
  Image result;
  const auto samples = static_cast<std::size_t>(size.width * channels);
  Sharpener sharpener(sharpening, size, channels, kernels, [&](const std::int16_t* row) {
    result.insert(result.end(), row, row + samples);
  });
  std::vector<std::int16_t> row((samples + kernels.lanes - 1) / kernels.lanes * kernels.lanes);
  for (int y = 0; y < size.height; ++y) {
    for (std::size_t i = 0; i < samples; ++i)
      row[i] = static_cast<std::int16_t>(image[static_cast<std::size_t>(y) * samples + i]);
    sharpener.AddRow(row.data());
  }
  return result;
}

TEST(SharpenerTest, AgreesWithTheExactReferenceForEveryInstructionSet) {
  for (const Size& size : {Size{1, 1}, Size{1, 9}, Size{9, 1}, Size{2, 2}, Size{37, 23}}) {
    for (const int channels : {1, 3}) {
      for (const Sharpening& sharpening :
           {Sharpening{0.5, 0.5, 1.25, 0}, Sharpening{0, 1, 0.8, 0}, Sharpening{4, 2, 2, 0}}) {
        const Image image = RandomImage(size, channels);
        const Image exact = ExactlySharpened(image, size, channels, sharpening);
        for (const RowKernels* kernels : AllKernels()) {
          const Image result = Sharpened(image, size, channels, sharpening, *kernels);
          ASSERT_EQ(result.size(), exact.size());
          for (std::size_t i = 0; i < exact.size(); ++i) {
            // A tenth of an 8-bit step; the rounding of both passes grows with the gain.
            EXPECT_NEAR(result[i], exact[i], 6.4 * (1 + sharpening.gain))
                << kernels->name << ' ' << size.width << 'x' << size.height << " at " << i;
          }
        }
      }
    }
  }
}

TEST(SharpenerTest, LeavesDifferencesBelowTheThreshold) {
  const Size size{16, 16};
  const Image image = RandomImage(size, 1);
  EXPECT_EQ(Sharpened(image, size, 1, {0.5, 0.5, 1.25, 2.1}, BestKernels()), image);
  EXPECT_NE(Sharpened(image, size, 1, {0.5, 0.5, 1.25, 0.2}, BestKernels()), image);
}

}  // namespace
}  // namespace keldo::convert
