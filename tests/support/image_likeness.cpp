#include "support/image_likeness.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <vector>

namespace keldo::testing {
namespace {

constexpr double kPeak = 255;
constexpr int kWindow = 8;
constexpr int kStep = 4;

void CheckSizes(const Image& a, const Image& b) {
  if (a.width != b.width || a.height != b.height) {
    throw std::invalid_argument("images of different sizes");
  }
  if (a.pixels.empty()) throw std::invalid_argument("images without pixels");
}

double Brightness(const Rgb& pixel) {
  return 0.299 * pixel[0] + 0.587 * pixel[1] + 0.114 * pixel[2];
}

// The positions of the windows along a side. The last one ends at the edge of the image.
std::vector<int> Starts(int side) {
  std::vector<int> starts;
  for (int at = 0; at + kWindow < side; at += kStep)
    starts.push_back(at);
  starts.push_back(std::max(0, side - kWindow));
  return starts;
}

double SsimOfWindow(const Image& a, const Image& b, int left, int top) {
  const int right = std::min(left + kWindow, a.width);
  const int bottom = std::min(top + kWindow, a.height);
  double sum_a = 0, sum_b = 0, sum_aa = 0, sum_bb = 0, sum_ab = 0;
  for (int y = top; y < bottom; ++y) {
    for (int x = left; x < right; ++x) {
      const double in_a = Brightness(a.At(x, y));
      const double in_b = Brightness(b.At(x, y));
      sum_a += in_a;
      sum_b += in_b;
      sum_aa += in_a * in_a;
      sum_bb += in_b * in_b;
      sum_ab += in_a * in_b;
    }
  }
  const double count = (right - left) * (bottom - top);
  const double mean_a = sum_a / count;
  const double mean_b = sum_b / count;
  const double variance_a = sum_aa / count - mean_a * mean_a;
  const double variance_b = sum_bb / count - mean_b * mean_b;
  const double covariance = sum_ab / count - mean_a * mean_b;
  // The usual constants, which avoid a division by zero in plain areas.
  constexpr double kC1 = (0.01 * kPeak) * (0.01 * kPeak);
  constexpr double kC2 = (0.03 * kPeak) * (0.03 * kPeak);
  return (2 * mean_a * mean_b + kC1) * (2 * covariance + kC2) /
         ((mean_a * mean_a + mean_b * mean_b + kC1) * (variance_a + variance_b + kC2));
}

}  // namespace

double Psnr(const Image& a, const Image& b) {
  CheckSizes(a, b);
  double squares = 0;
  for (std::size_t i = 0; i < a.pixels.size(); ++i) {
    for (std::size_t channel = 0; channel < 3; ++channel) {
      const double difference = double{1} * a.pixels[i][channel] - b.pixels[i][channel];
      squares += difference * difference;
    }
  }
  if (squares == 0) return std::numeric_limits<double>::infinity();
  return 10 * std::log10(kPeak * kPeak * 3 * static_cast<double>(a.pixels.size()) / squares);
}

double Ssim(const Image& a, const Image& b) {
  CheckSizes(a, b);
  double sum = 0;
  int windows = 0;
  for (const int top : Starts(a.height)) {
    for (const int left : Starts(a.width)) {
      sum += SsimOfWindow(a, b, left, top);
      ++windows;
    }
  }
  return sum / windows;
}

}  // namespace keldo::testing
