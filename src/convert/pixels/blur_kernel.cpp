#include "convert/pixels/blur_kernel.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "convert/pixels/fixed_point.h"

namespace keldo::convert {
namespace {

constexpr int kSamplesAPixel = 3;
// One step of a 16-bit sample is not visible.
constexpr double kVisible = 1.0 / 65535;
constexpr double kSmallestSigma = 1e-6;
// Wider blurs than any profile asks for, so that a row of weights stays short.
constexpr int kMostPixelsAside = 255;

double Gaussian(double x, double sigma) {
  return std::exp(-x * x / (2 * sigma * sigma));
}

// Pixels on each side: the first number, from 2 on, whose outermost weight cannot be seen, less
// one.
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
