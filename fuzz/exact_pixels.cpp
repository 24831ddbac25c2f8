#include "exact_pixels.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace keldo::convert {
namespace {

double Sinc(double x) {
  return x == 0 ? 1 : std::sin(std::numbers::pi * x) / (std::numbers::pi * x);
}

// Both filters are even, and zero outside their support.
double Curve(Filter filter, double x) {
  x = std::abs(x);
  if (filter == Filter::kLanczos) return x < 3 ? Sinc(x) * Sinc(x / 3) : 0;
  constexpr double kB = 1.0 / 3;
  constexpr double kC = 1.0 / 3;
  if (x < 1) {
    return ((12 - 9 * kB - 6 * kC) * x * x * x + (-18 + 12 * kB + 6 * kC) * x * x + (6 - 2 * kB)) /
           6;
  }
  if (x >= 2) return 0;
  return ((-kB - 6 * kC) * x * x * x + (6 * kB + 30 * kC) * x * x + (-12 * kB - 48 * kC) * x +
          (8 * kB + 24 * kC)) /
         6;
}

double InRange(double sample) {
  return std::clamp(sample, 0.0, 255.0);
}

}  // namespace

std::vector<ExactTap> ExactTaps(int source, int target, const Reduction& reduction, int index) {
  const int picked = reduction.presampled ? 5 * target : source;
  const double scale = std::max(1.0, static_cast<double>(picked) / target);
  const double centre = (index + 0.5) * picked / target;
  std::vector<ExactTap> taps;
  double total = 0;
  for (int i = 0; i < picked; ++i) {
    const double weight = Curve(reduction.filter, (i + 0.5 - centre) / scale);
    if (weight == 0) continue;
    // If the picked position is halfway between two samples, the first one counts.
    const double place = (i + 0.5) * source / picked;
    const int sample =
        reduction.presampled ? std::max(0, static_cast<int>(std::ceil(place - 1e-9)) - 1) : i;
    taps.push_back({sample, weight});
    total += weight;
  }
  for (ExactTap& tap : taps)
    tap.weight /= total;
  return taps;
}

ExactImage ExactlyReduced(const ExactImage& image, const Reduction& reduction) {
  const Size& target = reduction.target;
  ExactImage between{{image.size.width, target.height}, image.channels, {}};
  const int row = image.size.width * image.channels;
  for (int y = 0; y < target.height; ++y) {
    const auto taps = ExactTaps(image.size.height, target.height, reduction, y);
    for (int i = 0; i < row; ++i) {
      double sum = 0;
      for (const ExactTap& tap : taps)
        sum += tap.weight * image.samples[static_cast<std::size_t>(tap.source * row + i)];
      between.samples.push_back(InRange(sum));
    }
  }
  ExactImage result{target, image.channels, {}};
  result.samples.resize(static_cast<std::size_t>(target.width * target.height * image.channels));
  for (int x = 0; x < target.width; ++x) {
    const auto taps = ExactTaps(image.size.width, target.width, reduction, x);
    for (int y = 0; y < target.height; ++y) {
      for (int channel = 0; channel < image.channels; ++channel) {
        double sum = 0;
        for (const ExactTap& tap : taps)
          sum += tap.weight * between.At(tap.source, y, channel);
        result.At(x, y, channel) = InRange(sum);
      }
    }
  }
  return result;
}

std::vector<double> ExactBlurWeights(int aside, double sigma) {
  std::vector<double> weights;
  double total = 0;
  for (int pixel = -aside; pixel <= aside; ++pixel) {
    double weight = 0;
    for (const double part : {-1.0 / 3, 0.0, 1.0 / 3}) {
      const double distance = (pixel + part) / sigma;
      weight += std::exp(-distance * distance / 2);
    }
    weights.push_back(weight);
    total += weight;
  }
  for (double& weight : weights)
    weight /= total;
  return weights;
}

ExactImage ExactlyBlurred(const ExactImage& image, const std::vector<double>& weights) {
  const int aside = static_cast<int>(weights.size() / 2);
  const auto pass = [&](const ExactImage& from, int step_x, int step_y) {
    ExactImage result = from;
    for (int y = 0; y < from.size.height; ++y) {
      for (int x = 0; x < from.size.width; ++x) {
        for (int channel = 0; channel < from.channels; ++channel) {
          double sum = 0;
          for (int tap = -aside; tap <= aside; ++tap) {
            sum += weights[static_cast<std::size_t>(tap + aside)] *
                   from.At(std::clamp(x + tap * step_x, 0, from.size.width - 1),
                           std::clamp(y + tap * step_y, 0, from.size.height - 1), channel);
          }
          result.At(x, y, channel) = sum;
        }
      }
    }
    return result;
  };
  return pass(pass(image, 0, 1), 1, 0);
}

}  // namespace keldo::convert
