// Compares unsharp masking with the exact reference. Size, settings and pixels come from the input.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "convert/pixels/filter_weights.h"
#include "convert/pixels/sharpener.h"
#include "exact_pixels.h"

namespace keldo::convert {
namespace {

constexpr double kSteps = 1 << kFractionBits;  // of a 16-bit sample, for one of an 8-bit one

Sharpening AnySharpening(FuzzedDataProvider& input) {
  // In hundredths, as people write them.
  const auto any = [&](int most) { return input.ConsumeIntegralInRange(0, most) / 100.0; };
  Sharpening sharpening;
  sharpening.radius = any(500);
  sharpening.sigma = any(400) + 0.1;
  sharpening.gain = any(1000);
  sharpening.threshold = input.ConsumeBool() ? any(100) : 0;
  return sharpening;
}

// An image of values that 16-bit samples represent exactly.
ExactImage AnyImage(FuzzedDataProvider& input, const Size& size, int channels) {
  ExactImage image{size, channels, {}};
  const std::vector<std::uint8_t> bytes = input.ConsumeRemainingBytes<std::uint8_t>();
  const auto count = static_cast<std::size_t>(size.width * size.height * channels);
  for (std::size_t i = 0; i < count; ++i) {
    const int whole = bytes.empty() ? 255 : bytes[i % bytes.size()];
    const int fraction = static_cast<int>(i * 7 % static_cast<std::size_t>(kSteps));
    image.samples.push_back(std::min(whole + fraction / kSteps, 255.0));
  }
  return image;
}

std::vector<double> Sharpened(const ExactImage& image, const Sharpening& sharpening,
                              const RowKernels& kernels) {
  std::vector<double> result;
  const auto samples = static_cast<std::size_t>(image.size.width * image.channels);
  Sharpener sharpener(sharpening, image.size, image.channels, kernels,
                      [&](const std::int16_t* row) {
                        for (std::size_t i = 0; i < samples; ++i)
                          result.push_back(row[i] / kSteps);
                      });
  for (std::size_t at = 0; at < image.samples.size(); at += samples) {
    std::vector<std::int16_t> row((samples + kernels.lanes - 1) / kernels.lanes * kernels.lanes);
    for (std::size_t i = 0; i < samples; ++i)
      row[i] = static_cast<std::int16_t>(image.samples[at + i] * kSteps);
    sharpener.AddRow(row.data());
  }
  return result;
}

struct Reference {
  const ExactImage& image;
  ExactImage blurred;
  Sharpening sharpening;
  double blur_error;  // the largest error of a blurred sample
};

// Each tap of the two passes may be off by half a step of a 16-bit sample, and by a step of its
// weight times the sample.
Reference ReferenceOf(const ExactImage& image, const Sharpening& sharpening) {
  const std::size_t taps = BlurKernel(sharpening.radius, sharpening.sigma).size();
  const std::vector<double> weights =
      ExactBlurWeights(static_cast<int>(taps / 2), sharpening.sigma);
  const double of_a_tap = 0.5 / kSteps + 255.0 / kWeightOne;
  return {image, ExactlyBlurred(image, weights), sharpening,
          2 * static_cast<double>(taps) * of_a_tap + 1 / kSteps};
}

bool IsRight(double result, const Reference& reference, std::size_t i) {
  const double sample = reference.image.samples[i];
  const double difference = sample - reference.blurred.samples[i];
  const double sharp = std::clamp(sample + reference.sharpening.gain * difference, 0.0, 255.0);
  const double least = reference.sharpening.threshold * 255 / 2;
  const double tolerance = reference.sharpening.gain * reference.blur_error + 1 / kSteps;
  const bool may_be_plain = std::abs(difference) < least + reference.blur_error;
  const bool may_be_sharp = std::abs(difference) > least - reference.blur_error;
  return (may_be_plain && result == sample) ||
         (may_be_sharp && std::abs(result - sharp) <= tolerance);
}

void Check(const std::vector<double>& result, const Reference& reference, const char* kernels) {
  if (result.size() != reference.image.samples.size()) std::abort();
  for (std::size_t i = 0; i < result.size(); ++i) {
    if (IsRight(result[i], reference, i)) continue;
    const Sharpening& sharpening = reference.sharpening;
    std::fprintf(stderr, "%s, %dx%d, %gx%g+%g+%g: sample %zu is %f, was %f, blurred %f\n", kernels,
                 reference.image.size.width, reference.image.size.height, sharpening.radius,
                 sharpening.sigma, sharpening.gain, sharpening.threshold, i, result[i],
                 reference.image.samples[i], reference.blurred.samples[i]);
    std::abort();
  }
}

}  // namespace
}  // namespace keldo::convert

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  namespace convert = keldo::convert;
  FuzzedDataProvider input(data, size);
  const convert::Sharpening sharpening = convert::AnySharpening(input);
  const convert::Size image_size{input.ConsumeIntegralInRange(1, 50),
                                 input.ConsumeIntegralInRange(1, 24)};
  const int channels = input.ConsumeBool() ? 3 : 1;
  const convert::ExactImage image = convert::AnyImage(input, image_size, channels);
  const convert::Reference reference = convert::ReferenceOf(image, sharpening);
  for (const convert::RowKernels* kernels : convert::AllKernels()) {
    convert::Check(convert::Sharpened(image, sharpening, *kernels), reference, kernels->name);
  }
  return 0;
}
