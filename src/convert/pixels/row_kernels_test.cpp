// Checks every instruction set against exact arithmetic.
#include "convert/pixels/row_kernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "convert/pixels/filter_weights.h"

namespace keldo::convert {
namespace {

using Samples = std::vector<std::int16_t>;

constexpr double kOne = 1 << kFractionBits;

class RowKernelsTest : public ::testing::TestWithParam<const RowKernels*> {
 protected:
  const RowKernels& kernels() { return *GetParam(); }
  // Of all lengths that rows have: a few vectors, and several times the unrolled loop.
  std::vector<std::size_t> Counts() {
    const std::size_t lanes = kernels().lanes;
    return {lanes, 2 * lanes, 5 * lanes, 13 * lanes};
  }

  Samples RandomSamples(std::size_t count) {
    Samples samples(count);
    std::uniform_int_distribution<int> any(0, kLargestSample);
    for (std::int16_t& sample : samples)
      sample = static_cast<std::int16_t>(any(random_));
    return samples;
  }

  std::mt19937 random_{1};
};

std::string NameOf(const ::testing::TestParamInfo<const RowKernels*>& info) {
  return info.param->name;
}

INSTANTIATE_TEST_SUITE_P(Each, RowKernelsTest,
                         ::testing::ValuesIn(AllKernels().begin(), AllKernels().end()), NameOf);

TEST(AllKernelsTest, StartWithThePortableOnesAndEndWithTheBest) {
  ASSERT_FALSE(AllKernels().empty());
  EXPECT_EQ(AllKernels().back(), &BestKernels());
#if defined(__x86_64__)
  EXPECT_STREQ(AllKernels().front()->name, "EMU128");
  for (const RowKernels* kernels : AllKernels()) {
    const std::string name = kernels->name;
    EXPECT_EQ(kernels->lanes, name == "AVX2" ? 16U : 8U) << name;
  }
#endif
}

TEST_P(RowKernelsTest, WidensAndNarrowsEveryByte) {
  std::vector<std::uint8_t> bytes(256);
  for (std::size_t i = 0; i < bytes.size(); ++i)
    bytes[i] = static_cast<std::uint8_t>(i);
  Samples samples(bytes.size());
  kernels().widen(bytes.data(), samples.data(), bytes.size());
  for (std::size_t i = 0; i < bytes.size(); ++i)
    EXPECT_EQ(samples[i], static_cast<int>(i) << kFractionBits);
  std::vector<std::uint8_t> back(bytes.size());
  kernels().narrow(samples.data(), back.data(), bytes.size());
  EXPECT_EQ(back, bytes);
}

TEST_P(RowKernelsTest, NarrowsToTheNearestByteAndClamps) {
  const std::size_t lanes = kernels().lanes;
  Samples samples(lanes);
  const std::vector<std::pair<int, int>> expected{
      {31, 0},     {32, 1}, {95, 1}, {96, 2}, {-64, 0}, {-32768, 0}, {254 * 64 + 31, 254},
      {32767, 255}};
  for (std::size_t i = 0; i < expected.size(); ++i)
    samples[i] = static_cast<std::int16_t>(expected[i].first);
  std::vector<std::uint8_t> bytes(lanes);
  kernels().narrow(samples.data(), bytes.data(), lanes);
  for (std::size_t i = 0; i < expected.size(); ++i)
    EXPECT_EQ(bytes[i], expected[i].second) << expected[i].first;
}

TEST_P(RowKernelsTest, AddsWeightedRows) {
  const FilterWeights weights(100, 23, Filter::kLanczos, false);
  for (const std::size_t count : Counts()) {
    std::vector<Samples> rows;
    for (int i = 0; i < 100; ++i)
      rows.push_back(RandomSamples(count));
    for (const int y : {0, 11, 22}) {
      const FilterWeights::Taps taps = weights.taps(y);
      std::vector<const std::int16_t*> pointers;
      for (const int source : taps.sources)
        pointers.push_back(rows[static_cast<std::size_t>(source)].data());
      Samples sum(count);
      kernels().add_rows(pointers, taps.weights, sum.data(), count);
      for (std::size_t i = 0; i < count; ++i) {
        double exact = 0;
        for (std::size_t tap = 0; tap < pointers.size(); ++tap)
          exact += pointers[tap][i] * (taps.weights[tap] / static_cast<double>(kWeightOne));
        // Each product is rounded separately.
        EXPECT_NEAR(sum[i], std::clamp<double>(exact, 0, kLargestSample), 0.5 * 26) << i;
      }
    }
  }
}

TEST_P(RowKernelsTest, ASumOfEqualSamplesEqualsTheSample) {
  const FilterWeights weights(977, 31, Filter::kLanczos, false);
  const std::size_t lanes = kernels().lanes;
  for (const int value : {0, 1, 100, 254, 255}) {
    const Samples row(lanes, static_cast<std::int16_t>(value << kFractionBits));
    for (int y = 0; y < weights.target(); ++y) {
      const FilterWeights::Taps taps = weights.taps(y);
      const std::vector<const std::int16_t*> pointers(taps.sources.size(), row.data());
      Samples sum(lanes);
      kernels().add_rows(pointers, taps.weights, sum.data(), lanes);
      EXPECT_NEAR(sum[0] / kOne, value, 0.25) << y;
    }
  }
}

TEST_P(RowKernelsTest, ClampsOvershoot) {
  const std::size_t lanes = kernels().lanes;
  const Samples bright(lanes, kLargestSample);
  const Samples dark(lanes, 0);
  const std::vector<std::int16_t> weights{-8000, 32767, 8000};
  Samples sum(lanes);
  const std::vector<const std::int16_t*> over{dark.data(), bright.data(), bright.data()};
  kernels().add_rows(over, weights, sum.data(), lanes);
  EXPECT_EQ(sum[0], kLargestSample);
  const std::vector<const std::int16_t*> under{bright.data(), dark.data(), dark.data()};
  kernels().add_rows(under, weights, sum.data(), lanes);
  EXPECT_EQ(sum[lanes - 1], 0);
}

TEST_P(RowKernelsTest, TransposesBlocksThereAndBack) {
  const std::size_t lanes = kernels().lanes;
  for (const std::size_t count : Counts()) {
    const std::size_t stride = count + lanes;
    const Samples rows = RandomSamples(lanes * stride);
    Samples transposed(lanes * count);
    kernels().transpose(rows.data(), stride, transposed.data(), count);
    for (std::size_t row = 0; row < lanes; ++row) {
      for (std::size_t i = 0; i < count; ++i)
        ASSERT_EQ(transposed[i * lanes + row], rows[row * stride + i]) << row << ' ' << i;
    }
    Samples back(lanes * stride);
    kernels().transpose_back(transposed.data(), back.data(), stride, count);
    for (std::size_t row = 0; row < lanes; ++row) {
      for (std::size_t i = 0; i < count; ++i)
        ASSERT_EQ(back[row * stride + i], rows[row * stride + i]) << row << ' ' << i;
    }
  }
}

TEST_P(RowKernelsTest, TransposesBackToBytes) {
  const std::size_t lanes = kernels().lanes;
  for (const std::size_t count : Counts()) {
    const std::size_t stride = count + lanes;
    const Samples transposed = RandomSamples(lanes * count);
    Samples wide(lanes * stride);
    kernels().transpose_back(transposed.data(), wide.data(), stride, count);
    std::vector<std::uint8_t> expected(lanes * stride);
    kernels().narrow(wide.data(), expected.data(), expected.size());
    std::vector<std::uint8_t> bytes(lanes * stride);
    kernels().transpose_back_narrow(transposed.data(), bytes.data(), stride, count);
    EXPECT_EQ(bytes, expected) << count;
  }
}

TEST_P(RowKernelsTest, FiltersTransposedBlocks) {
  const std::size_t lanes = kernels().lanes;
  for (const int channels : {1, 3}) {
    const FilterWeights weights(67, 20, Filter::kMitchell, false);
    const auto pixel = static_cast<std::size_t>(channels) * lanes;
    const Samples transposed = RandomSamples(67 * pixel);
    Samples result(20 * pixel);
    // In two strips, the second of which starts in the middle of the block.
    kernels().filter_transposed({transposed.data(), 0}, result.data(), weights, {0, 13, channels});
    const auto start = static_cast<std::size_t>(30 * channels);
    kernels().filter_transposed({transposed.data() + start * lanes, start},
                                result.data() + 13 * pixel, weights, {13, 20, channels});
    for (int x = 0; x < 20; ++x) {
      const FilterWeights::Taps taps = weights.taps(x);
      for (std::size_t i = 0; i < pixel; ++i) {
        double exact = 0;
        for (std::size_t tap = 0; tap < taps.sources.size(); ++tap) {
          exact += transposed[static_cast<std::size_t>(taps.sources[tap]) * pixel + i] *
                   (taps.weights[tap] / static_cast<double>(kWeightOne));
        }
        EXPECT_NEAR(result[static_cast<std::size_t>(x) * pixel + i],
                    std::clamp<double>(exact, 0, kLargestSample), 0.5 * 14);
      }
    }
  }
}

TEST_P(RowKernelsTest, SharpensDifferencesAboveTheThreshold) {
  for (const std::size_t count : Counts()) {
    const Samples plain = RandomSamples(count);
    const Samples blurred = RandomSamples(count);
    Samples result(count);
    const float threshold = 3000;
    kernels().sharpen(plain.data(), blurred.data(), 1.25F, threshold, result.data(), count);
    for (std::size_t i = 0; i < count; ++i) {
      const double difference = plain[i] - blurred[i];
      const double exact =
          2 * std::abs(difference) < threshold ? plain[i] : plain[i] + 1.25 * difference;
      EXPECT_NEAR(result[i], std::clamp<double>(exact, 0, kLargestSample), 0.5);
    }
  }
}

}  // namespace
}  // namespace keldo::convert
