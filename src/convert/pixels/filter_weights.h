// The weights of the filters that resize and sharpen, and the number formats they work in.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace keldo::convert {

/// Between two stages a sample is a 16-bit number with this many bits below the 8-bit value. It
/// leaves room for the overshoot of filters with negative weights.
inline constexpr int kFractionBits = 6;
inline constexpr std::int16_t kLargestSample = 255 << kFractionBits;

/// A filter weight is a 16-bit number; this would be 1, and is what the weights of a pixel add up
/// to. A single weight goes up to one less, which changes no 8-bit value.
inline constexpr int kWeightOne = 1 << 15;

enum class Filter : std::uint8_t {
  kLanczos,   ///< sinc(x) sinc(x/3) for |x| < 3
  kMitchell,  ///< the cubic of Mitchell and Netravali (1988) with B = C = 1/3
};

/// The value of a filter at a distance of `x` samples from its centre.
[[nodiscard]] double FilterValue(Filter filter, double x);

/// For every sample of a reduced (or equal) row or column, the source samples that it is made of,
/// in ascending order, with weights that add up to kWeightOne.
class FilterWeights {
 public:
  struct Taps {
    std::span<const int> sources;
    std::span<const std::int16_t> weights;
  };

  /// From `source` to `target` samples. `presampled` first picks five evenly spaced source
  /// samples for each target sample: the cheap first step of large reductions, whose slight
  /// roughness is part of how such thumbnails look.
  FilterWeights(int source, int target, Filter filter, bool presampled);

  [[nodiscard]] int source() const { return source_; }
  [[nodiscard]] int target() const { return static_cast<int>(starts_.size()) - 1; }
  /// The taps of target sample `index`; never empty.
  [[nodiscard]] Taps taps(int index) const {
    const std::size_t start = starts_[static_cast<std::size_t>(index)];
    const std::size_t count = starts_[static_cast<std::size_t>(index) + 1] - start;
    return {std::span(sources_).subspan(start, count), std::span(weights_).subspan(start, count)};
  }
  /// The largest distance from the first to the last source sample of one target sample, inclusive.
  [[nodiscard]] int span() const { return span_; }
  /// True when the result is the source itself.
  [[nodiscard]] bool IsIdentity() const { return source_ == target() && span_ == 1; }

 private:
  void Add(std::span<const int> sources, std::span<const double> weights);

  int source_;
  int span_ = 0;
  std::vector<std::size_t> starts_{0};
  std::vector<int> sources_;
  std::vector<std::int16_t> weights_;
};

/// The weights of a one-dimensional Gaussian blur, an odd number that adds up to kWeightOne.
/// `radius` and `sigma` are in pixels; a radius of 0 means just large enough that the
/// weights left out are invisible. Each weight is the sum of three samples of the curve, a third of
/// a pixel apart, as a pixel is an area.
[[nodiscard]] std::vector<std::int16_t> BlurKernel(double radius, double sigma);

}  // namespace keldo::convert
