#include "convert/pixels/filter_weights.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace keldo::convert {
namespace {

constexpr double kLanczosSupport = 3;
constexpr double kMitchellSupport = 2;
constexpr int kSamplesPicked = 5;

// sinc(x) sinc(x/3), with the sine of the triple angle taken from that of the angle.
double Lanczos(double x) {
  if (x == 0) return 1;
  if (x >= kLanczosSupport) return 0;
  const double angle = std::numbers::pi * x / kLanczosSupport;
  const double sine = std::sin(angle);
  return sine * sine * (3 - 4 * sine * sine) / (kLanczosSupport * angle * angle);
}

// The two pieces of the cubic for B = C = 1/3, over 18.
double Mitchell(double x) {
  if (x < 1) return (((21 * x) - 36) * x * x + 16) / 18;
  if (x < kMitchellSupport) return (((-7 * x + 36) * x - 60) * x + 32) / 18;
  return 0;
}

double SupportOf(Filter filter) {
  return filter == Filter::kLanczos ? kLanczosSupport : kMitchellSupport;
}

// To the nearest whole number; faster than the library, which handles cases that cannot occur here.
long Rounded(double x) {
  constexpr long kAboveAllSums = 16L * kWeightOne;
  return static_cast<long>(x + (kAboveAllSums + 0.5)) - kAboveAllSums;
}

// The source position of picked sample `index`: (index + 1/2) * source / picked. Between two
// samples it is the earlier one.
int PickedSample(int index, int source, int picked) {
  const std::int64_t twice = (2 * std::int64_t{index} + 1) * source;
  return static_cast<int>((twice - 1) / (2 * std::int64_t{picked}));
}

constexpr int kSamplesAPixel = 3;
// One step of a 16-bit sample is not visible.
constexpr double kVisible = 1.0 / 65535;
constexpr double kSmallestSigma = 1e-6;
// Wider than any profile asks for, and short enough for a row of weights.
constexpr int kMostPixelsAside = 255;

double Gaussian(double x, double sigma) {
  return std::exp(-x * x / (2 * sigma * sigma));
}

// Pixels on each side: one less than the first number, from 2 on, whose outermost weight is
// invisible.
int PixelsAside(double radius, double sigma) {
  if (radius > 0) return static_cast<int>(std::min<double>(std::ceil(radius), kMostPixelsAside));
  for (int aside = 2; aside < kMostPixelsAside; ++aside) {
    double total = 0;
    for (int i = -aside; i <= aside; ++i)
      total += Gaussian(i, sigma);
    if (Gaussian(aside, sigma) / total < kVisible) return aside - 1;
  }
  return kMostPixelsAside;
}

}  // namespace

double FilterValue(Filter filter, double x) {
  const double distance = std::abs(x);
  return filter == Filter::kLanczos ? Lanczos(distance) : Mitchell(distance);
}

FilterWeights::FilterWeights(int source, int target, Filter filter, bool presampled)
    : source_(source) {
  const int picked = presampled ? kSamplesPicked * target : source;
  const double scale = std::max(1.0, static_cast<double>(picked) / target);
  const double support = scale * SupportOf(filter);
  std::vector<int> sources;
  std::vector<double> weights;
  for (int index = 0; index < target; ++index) {
    const double centre = (index + 0.5) * picked / target;
    const int first = std::max(0, static_cast<int>(std::floor(centre - support + 0.5)));
    const int end = std::min(picked, static_cast<int>(std::floor(centre + support + 0.5)));
    sources.clear();
    weights.clear();
    for (int i = first; i < end; ++i) {
      const int sample = presampled ? PickedSample(i, source, picked) : i;
      const double weight = FilterValue(filter, (i + 0.5 - centre) / scale);
      if (sources.empty() || sources.back() != sample) {
        sources.push_back(sample);
        weights.push_back(weight);
      } else {
        weights.back() += weight;
      }
    }
    Add(sources, weights);
  }
}

// Rounds the running sum instead of each weight, so that the rounded weights add up exactly.
void FilterWeights::Add(std::span<const int> sources, std::span<const double> weights) {
  double total = 0;
  for (const double weight : weights)
    total += weight;

  const double scale = kWeightOne / total;
  const std::size_t start = sources_.size();
  double sum = 0;
  long rounded = 0;
  for (std::size_t i = 0; i < sources.size(); ++i) {
    sum += weights[i] * scale;
    const long weight = Rounded(sum) - rounded;
    rounded += weight;
    if (weight == 0) continue;
    sources_.push_back(sources[i]);
    weights_.push_back(static_cast<std::int16_t>(std::min(weight, kWeightOne - 1L)));
  }
  starts_.push_back(sources_.size());
  span_ = std::max(span_, sources_.back() - sources_[start] + 1);
}

std::vector<std::int16_t> BlurKernel(double radius, double sigma) {
  sigma = std::max(std::abs(sigma), kSmallestSigma);
  const int aside = PixelsAside(radius, sigma);
  std::vector<double> weights;
  double total = 0;
  for (int pixel = -aside; pixel <= aside; ++pixel) {
    double weight = 0;
    for (int part = -1; part <= 1; ++part)
      weight += Gaussian(pixel * kSamplesAPixel + part, sigma * kSamplesAPixel);
    weights.push_back(weight);
    total += weight;
  }
  std::vector<std::int16_t> kernel;
  double sum = 0;
  long rounded = 0;
  for (const double weight : weights) {
    sum += weight / total * kWeightOne;
    const long next = std::lround(sum) - rounded;
    rounded += next;
    kernel.push_back(static_cast<std::int16_t>(std::min(next, kWeightOne - 1L)));
  }
  return kernel;
}

}  // namespace keldo::convert
