// Resizing against a slow reference in double precision.
#include "convert/pixels/resizer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <tuple>
#include <vector>

#include "convert/pixels/filter_weights.h"

namespace keldo::convert {
namespace {

using Image = std::vector<double>;

std::vector<std::uint8_t> RandomImage(const Size& size, int channels) {
  std::mt19937 random(7);
  std::uniform_int_distribution<int> any(0, 255);
  std::vector<std::uint8_t> image(static_cast<std::size_t>(size.width * size.height * channels));
  for (std::uint8_t& sample : image)
    sample = static_cast<std::uint8_t>(any(random));
  return image;
}

// The weights in full precision, from their definition.
std::vector<std::pair<int, double>> ExactTaps(int source, int target, Filter filter,
                                              bool presampled, int index) {
  const int picked = presampled ? 5 * target : source;
  const double scale = std::max(1.0, static_cast<double>(picked) / target);
  const double centre = (index + 0.5) * picked / target;
  std::vector<std::pair<int, double>> taps;
  double total = 0;
  for (int i = 0; i < picked; ++i) {
    const double distance = (i + 0.5 - centre) / scale;
    if (std::abs(distance) >= (filter == Filter::kLanczos ? 3 : 2)) continue;
    int sample = i;
    if (presampled) sample = static_cast<int>(std::ceil((i + 0.5) * source / picked - 1e-9)) - 1;
    taps.emplace_back(std::max(sample, 0), FilterValue(filter, distance));
    total += taps.back().second;
  }
  for (auto& tap : taps)
    tap.second /= total;
  return taps;
}

// Rows first, clamped between the passes.
Image ExactResize(const std::vector<std::uint8_t>& image, const Reduction& reduction) {
  const auto& [source, target, channels, filter, presampled] = reduction;
  Image between(static_cast<std::size_t>(source.width * target.height * channels));
  const int row = source.width * channels;
  for (int y = 0; y < target.height; ++y) {
    const auto taps = ExactTaps(source.height, target.height, filter, presampled, y);
    for (int i = 0; i < row; ++i) {
      double sum = 0;
      for (const auto& [from, weight] : taps)
        sum += weight * image[static_cast<std::size_t>(from * row + i)];
      between[static_cast<std::size_t>(y * row + i)] = std::clamp(sum, 0.0, 255.0);
    }
  }
  Image result(static_cast<std::size_t>(target.width * target.height * channels));
  for (int x = 0; x < target.width; ++x) {
    const auto taps = ExactTaps(source.width, target.width, filter, presampled, x);
    for (int y = 0; y < target.height; ++y) {
      for (int c = 0; c < channels; ++c) {
        double sum = 0;
        for (const auto& [from, weight] : taps)
          sum += weight * between[static_cast<std::size_t>(y * row + from * channels + c)];
        result[static_cast<std::size_t>((y * target.width + x) * channels + c)] =
            std::clamp(sum, 0.0, 255.0);
      }
    }
  }
  return result;
}

Image Resized(const std::vector<std::uint8_t>& image, const Reduction& reduction,
              const RowKernels& kernels) {
  Image result;
  const auto samples = static_cast<std::size_t>(reduction.target.width * reduction.channels);
  Resizer resizer(reduction, kernels, [&](const std::int16_t* row) {
    for (std::size_t i = 0; i < samples; ++i)
      result.push_back(row[i] / static_cast<double>(1 << kFractionBits));
  });
  const auto row = static_cast<std::size_t>(reduction.source.width * reduction.channels);
  for (int y = 0; y < reduction.source.height; ++y) {
    // A copy of just the row, so that the sanitizer sees a read beyond its end.
    const auto from = image.begin() + static_cast<std::ptrdiff_t>(row) * y;
    resizer.AddRow(std::vector<std::uint8_t>(from, from + static_cast<std::ptrdiff_t>(row)).data());
  }
  return result;
}

double LargestDifference(const Image& a, const Image& b) {
  double largest = 0;
  for (std::size_t i = 0; i < a.size(); ++i)
    largest = std::max(largest, std::abs(a[i] - b[i]));
  return largest;
}

TEST(ResizerTest, AgreesWithTheExactReferenceForEveryInstructionSet) {
  // Odd and tiny sizes, one pixel, one row, one column, and rows of more than one block.
  const std::vector<std::tuple<Size, Size>> sizes{
      {{101, 67}, {40, 27}}, {{1, 1}, {1, 1}},       {{1, 90}, {1, 7}}, {{90, 1}, {7, 1}},
      {{33, 33}, {32, 32}},  {{200, 50}, {200, 49}}, {{5, 7}, {2, 3}},  {{64, 300}, {31, 120}},
      {{900, 12}, {16, 12}}, {{17, 40}, {17, 1}}};
  for (const auto& [source, target] : sizes) {
    for (const int channels : {1, 3}) {
      for (const Filter filter : {Filter::kLanczos, Filter::kMitchell}) {
        for (const bool presampled : {false, true}) {
          const Reduction reduction{source, target, channels, filter, presampled};
          const auto image = RandomImage(source, channels);
          const Image exact = ExactResize(image, reduction);
          for (const RowKernels* kernels : AllKernels()) {
            const Image result = Resized(image, reduction, *kernels);
            ASSERT_EQ(result.size(), exact.size());
            EXPECT_LT(LargestDifference(result, exact), 0.5)
                << kernels->name << ": " << source.width << 'x' << source.height << " to "
                << target.width << 'x' << target.height << ", presampled " << presampled;
          }
        }
      }
    }
  }
}

TEST(ResizerTest, GivesBytesRoundedFromTheSameSamples) {
  for (const Size& target : {Size{100, 71}, Size{33, 9}, Size{333, 1}}) {
    const Reduction reduction{{333, 222}, target, 3, Filter::kLanczos, false};
    const auto image = RandomImage(reduction.source, 3);
    const auto samples = static_cast<std::size_t>(target.width * 3);
    for (const RowKernels* kernels : AllKernels()) {
      std::vector<std::uint8_t> bytes;
      Resizer resizer(reduction, *kernels, [&](const std::uint8_t* row) {
        bytes.insert(bytes.end(), row, row + samples);
      });
      for (auto row = image.begin(); row != image.end(); row += 3 * 333)
        resizer.AddRow(std::vector<std::uint8_t>(row, row + 3 * 333).data());
      const Image exact = Resized(image, reduction, *kernels);
      ASSERT_EQ(bytes.size(), exact.size()) << kernels->name;
      for (std::size_t i = 0; i < bytes.size(); ++i)
        ASSERT_EQ(bytes[i], std::min(255.0, std::floor(exact[i] + 0.5))) << kernels->name;
    }
  }
}

TEST(ResizerTest, AllInstructionSetsGiveTheSamePixels) {
  const Reduction reduction{{333, 222}, {100, 71}, 3, Filter::kLanczos, false};
  const auto image = RandomImage(reduction.source, 3);
  const Image first = Resized(image, reduction, *AllKernels().front());
  for (const RowKernels* kernels : AllKernels())
    EXPECT_EQ(Resized(image, reduction, *kernels), first) << kernels->name;
}

}  // namespace
}  // namespace keldo::convert
