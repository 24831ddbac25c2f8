#include "convert/pixels/filter_weights.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <numeric>
#include <tuple>

namespace keldo::convert {
namespace {

using ::testing::ElementsAre;

constexpr double kWeightStep = 1.0 / kWeightOne;

TEST(FilterValueTest, IsTheTextbookCurve) {
  EXPECT_DOUBLE_EQ(FilterValue(Filter::kLanczos, 0), 1);
  EXPECT_NEAR(FilterValue(Filter::kLanczos, 0.5), 0.6079271, 1e-6);
  EXPECT_NEAR(FilterValue(Filter::kLanczos, -1.5), -0.1350949, 1e-6);
  EXPECT_NEAR(FilterValue(Filter::kLanczos, 2), 0, 1e-12);
  EXPECT_EQ(FilterValue(Filter::kLanczos, 3), 0);
  EXPECT_NEAR(FilterValue(Filter::kMitchell, 0), 8.0 / 9, 1e-12);
  EXPECT_NEAR(FilterValue(Filter::kMitchell, 1), 1.0 / 18, 1e-12);
  EXPECT_NEAR(FilterValue(Filter::kMitchell, -1.5), -5.0 / 144, 1e-12);
  EXPECT_EQ(FilterValue(Filter::kMitchell, 2), 0);
}

TEST(FilterWeightsTest, WeightsOfEverySampleAddUpToOneToOne) {
  for (const auto& [source, target] :
       {std::tuple{1000, 333}, {7, 3}, {5000, 1}, {2, 1}, {100, 99}}) {
    for (const bool presampled : {false, true}) {
      const FilterWeights weights(source, target, Filter::kLanczos, presampled);
      ASSERT_EQ(weights.target(), target);
      for (int i = 0; i < target; ++i) {
        const FilterWeights::Taps taps = weights.taps(i);
        EXPECT_NEAR(std::accumulate(taps.weights.begin(), taps.weights.end(), 0), kWeightOne, 1)
            << source << " to " << target << " at " << i;
        EXPECT_TRUE(std::is_sorted(taps.sources.begin(), taps.sources.end()));
        EXPECT_GE(taps.sources.front(), 0);
        EXPECT_LT(taps.sources.back(), source);
        EXPECT_LE(taps.sources.back() - taps.sources.front() + 1, weights.span());
      }
    }
  }
}

// 300 to 100: the centre of sample 50 is at 151.5, in the middle of source sample 151.
TEST(FilterWeightsTest, FollowTheFilterAroundTheCentre) {
  const FilterWeights weights(300, 100, Filter::kLanczos, false);
  const FilterWeights::Taps taps = weights.taps(50);
  double total = 0;
  for (int i = 143; i < 161; ++i)
    total += FilterValue(Filter::kLanczos, (i - 151) / 3.0);
  for (std::size_t i = 0; i < taps.sources.size(); ++i) {
    const double exact = FilterValue(Filter::kLanczos, (taps.sources[i] - 151) / 3.0) / total;
    EXPECT_NEAR(taps.weights[i] * kWeightStep, exact, kWeightStep) << taps.sources[i];
  }
}

TEST(FilterWeightsTest, EqualSizesLeaveTheSourceUnchanged) {
  const FilterWeights weights(50, 50, Filter::kLanczos, false);
  EXPECT_TRUE(weights.IsIdentity());
  EXPECT_THAT(weights.taps(7).sources, ElementsAre(7));
  EXPECT_FALSE(FilterWeights(50, 49, Filter::kLanczos, false).IsIdentity());
  EXPECT_FALSE(FilterWeights(50, 50, Filter::kMitchell, false).IsIdentity());
}

// Of 8 samples for each result, 5 are picked: at 0.8, 2.4, 4, 5.6 and 7.2. Between two samples the
// earlier one is picked.
TEST(FilterWeightsTest, PresamplingPicksFiveSamplesForEachResult) {
  const FilterWeights weights(8, 1, Filter::kMitchell, true);
  EXPECT_THAT(weights.taps(0).sources, ElementsAre(0, 2, 3, 5, 7));
}

TEST(FilterWeightsTest, PresamplingMayRepeatSamples) {
  const FilterWeights weights(4, 2, Filter::kMitchell, true);
  EXPECT_THAT(weights.taps(0).sources, ElementsAre(0, 1, 2, 3));
}

}  // namespace
}  // namespace keldo::convert
