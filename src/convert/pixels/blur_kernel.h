// The blur that unsharp masking subtracts.
#pragma once

#include <cstdint>
#include <vector>

namespace keldo::convert {

/// The weights of a one-dimensional Gaussian blur, an odd number that adds up to kWeightOne.
/// `radius` and `sigma` are in pixels; a radius of 0 is chosen so that what lies outside is not
/// visible. Each weight is the sum of three samples of the curve, a third of a pixel apart, as a
/// pixel is an area.
[[nodiscard]] std::vector<std::int16_t> BlurKernel(double radius, double sigma);

}  // namespace keldo::convert
