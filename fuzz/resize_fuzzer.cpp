// Compares resizing with the exact reference. Sizes, filter, kernels and pixels come from the
// input.
#include <fuzzer/FuzzedDataProvider.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "convert/pixels/filter_weights.h"
#include "exact_pixels.h"

namespace keldo::convert {
namespace {

constexpr int kLongestSide = 400;
constexpr int kMostPixels = 4'000;

Reduction AnyReduction(FuzzedDataProvider& input) {
  Reduction reduction;
  reduction.source.width = input.ConsumeIntegralInRange(1, kLongestSide);
  reduction.source.height = input.ConsumeIntegralInRange(
      1, std::min(kLongestSide, std::max(1, kMostPixels / reduction.source.width)));
  reduction.target.width = input.ConsumeIntegralInRange(1, reduction.source.width);
  reduction.target.height = input.ConsumeIntegralInRange(1, reduction.source.height);
  reduction.channels = input.ConsumeBool() ? 3 : 1;
  reduction.filter = input.ConsumeBool() ? Filter::kMitchell : Filter::kLanczos;
  reduction.presampled = input.ConsumeBool();
  return reduction;
}

// Repeats the bytes of the input, because regular patterns give the worst sums.
ExactImage AnyImage(FuzzedDataProvider& input, const Size& size, int channels) {
  ExactImage image{size, channels, {}};
  const std::vector<std::uint8_t> bytes = input.ConsumeRemainingBytes<std::uint8_t>();
  const auto count = static_cast<std::size_t>(size.width * size.height * channels);
  for (std::size_t i = 0; i < count; ++i)
    image.samples.push_back(bytes.empty() ? 255 : bytes[i % bytes.size()]);
  return image;
}

std::vector<double> Reduced(const ExactImage& image, const Reduction& reduction,
                            const RowKernels& kernels) {
  std::vector<double> result;
  const auto row_of_target = static_cast<std::size_t>(reduction.target.width * reduction.channels);
  Resizer resizer(reduction, kernels, [&](const std::int16_t* row) {
    for (std::size_t i = 0; i < row_of_target; ++i)
      result.push_back(row[i] / static_cast<double>(1 << kFractionBits));
  });
  const auto row_of_source = static_cast<std::size_t>(image.size.width * image.channels);
  for (std::size_t at = 0; at < image.samples.size(); at += row_of_source) {
    // A separate allocation for each row, so that reading beyond its end is noticed.
    std::vector<std::uint8_t> row;
    for (std::size_t i = 0; i < row_of_source; ++i)
      row.push_back(static_cast<std::uint8_t>(image.samples[at + i]));
    resizer.AddRow(row.data());
  }
  return result;
}

// Each tap may be off by half a step of a 16-bit sample for its product, and by a step of its
// weight times the sample. The second pass may multiply the error of the first one by the sum of
// its absolute weights, which is below 2.
double Tolerance(const Reduction& reduction) {
  const auto taps = [&](int source, int target) {
    const FilterWeights weights(source, target, reduction.filter, reduction.presampled);
    std::size_t most = 0;
    for (int i = 0; i < target; ++i)
      most = std::max(most, weights.taps(i).sources.size());
    return static_cast<double>(most);
  };
  constexpr double kOfATap = 0.5 / (1 << kFractionBits) + 255.0 / kWeightOne;
  return kOfATap * (2 * taps(reduction.source.height, reduction.target.height) +
                    taps(reduction.source.width, reduction.target.width)) +
         0.05;
}

void Check(const std::vector<double>& result, const ExactImage& exact, const Reduction& reduction,
           const char* kernels) {
  if (result.size() != exact.samples.size()) std::abort();
  const double tolerance = Tolerance(reduction);
  for (std::size_t i = 0; i < result.size(); ++i) {
    if (std::abs(result[i] - exact.samples[i]) <= tolerance) continue;
    std::fprintf(stderr, "%s, %dx%d to %dx%d: sample %zu is %f instead of %f, tolerance %f\n",
                 kernels, reduction.source.width, reduction.source.height, reduction.target.width,
                 reduction.target.height, i, result[i], exact.samples[i], tolerance);
    std::abort();
  }
}

}  // namespace
}  // namespace keldo::convert

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  namespace convert = keldo::convert;
  FuzzedDataProvider input(data, size);
  const convert::Reduction reduction = convert::AnyReduction(input);
  const convert::ExactImage image = convert::AnyImage(input, reduction.source, reduction.channels);
  const convert::ExactImage exact = convert::ExactlyReduced(image, reduction);
  for (const convert::RowKernels* kernels : convert::AllKernels()) {
    convert::Check(convert::Reduced(image, reduction, *kernels), exact, reduction, kernels->name);
  }
  return 0;
}
