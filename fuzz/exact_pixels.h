// Slow, exact pixel work in double precision, as the reference for the fast kernels.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "convert/pixels/plan.h"
#include "convert/pixels/resizer.h"

namespace keldo::convert {

/// A rectangle of samples from 0 to 255: rows of `width` pixels with `channels` samples each.
struct ExactImage {
  Size size;
  int channels = 1;
  std::vector<double> samples;

  [[nodiscard]] double& At(int x, int y, int channel) { return samples[Index(x, y, channel)]; }
  [[nodiscard]] double At(int x, int y, int channel) const { return samples[Index(x, y, channel)]; }
  [[nodiscard]] std::size_t Index(int x, int y, int channel) const {
    return static_cast<std::size_t>((y * size.width + x) * channels + channel);
  }
};

struct ExactTap {
  int source;
  double weight;
};

/// The taps of sample `index` when `source` samples become `target`, computed from the definition.
[[nodiscard]] std::vector<ExactTap> ExactTaps(int source, int target, const Reduction& reduction,
                                              int index);

/// Reduces columns first, and clamps to the range of samples after each pass.
[[nodiscard]] ExactImage ExactlyReduced(const ExactImage& image, const Reduction& reduction);

/// The weights of a Gaussian of `sigma` pixels over `aside` pixels on each side of the centre. Each
/// pixel is the mean of three samples.
[[nodiscard]] std::vector<double> ExactBlurWeights(int aside, double sigma);

/// The blurred image; its edges are repeated.
[[nodiscard]] ExactImage ExactlyBlurred(const ExactImage& image,
                                        const std::vector<double>& weights);

}  // namespace keldo::convert
