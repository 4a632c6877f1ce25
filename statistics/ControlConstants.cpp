#include "statistics/ControlConstants.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>
#include <vector>

#include "statistics/Distributions.h"

namespace statistics {

namespace {

constexpr std::int64_t kLargestSubgroup = 1000;

/// Mean and mean square of the range of normal values with the deviation 1.
struct RangeMoments {
  double mean = 0;
  double square = 0;
};

// The range of n values is at most w with the probability n times the integral, over the smallest
// value x, of its density times (P(x + w) - P(x)) to the power n - 1. Both integrals go over a grid
// of the same step, so that P is a table. Trapezoids are exact for the inner one, whose integrand
// vanishes at both ends with all its derivatives; Simpson's rule suits the outer one.
RangeMoments rangeMoments(std::int64_t size) {
  constexpr std::size_t kSteps = 16;  // in one deviation
  constexpr double kStep = 1.0 / kSteps;
  constexpr std::size_t kInner = 18 * kSteps;  // from -9 to 9
  constexpr std::size_t kOuter = 18 * kSteps;  // ranges from 0 to 18
  std::vector<double> density(kInner + 1);
  std::vector<double> below(kInner + kOuter + 1);
  for (std::size_t i = 0; i < below.size(); ++i) {
    const double x = -9 + static_cast<double>(i) * kStep;
    below[i] = distributions::normalBelow(x);
    if (i <= kInner) density[i] = std::exp(-x * x / 2) / std::sqrt(2 * std::numbers::pi);
  }
  RangeMoments moments;
  const double n = static_cast<double>(size);
  for (std::size_t outer = 0; outer <= kOuter; ++outer) {
    double atMost = 0;
    for (std::size_t i = 0; i <= kInner; ++i) {
      atMost += density[i] * std::pow(below[i + outer] - below[i], n - 1);
    }
    const double above = 1 - n * kStep * atMost;
    const double simpson = outer == 0 || outer == kOuter ? 1 : (outer % 2 == 1 ? 4 : 2);
    const double weight = simpson * kStep / 3;
    moments.mean += weight * above;
    moments.square += weight * 2 * static_cast<double>(outer) * kStep * above;
  }
  return moments;
}

}  // namespace

Computed<ControlConstants> controlConstants(std::int64_t subgroupSize) {
  if (subgroupSize < 2) {
    return Computed<ControlConstants>::absent("subgroups of fewer than 2 values");
  }
  if (subgroupSize > kLargestSubgroup) {
    return Computed<ControlConstants>::absent("subgroups of more than 1000 values");
  }
  const RangeMoments moments = rangeMoments(subgroupSize);
  const double n = static_cast<double>(subgroupSize);
  ControlConstants constants;
  constants.d2 = moments.mean;
  constants.d3 = std::sqrt(moments.square - moments.mean * moments.mean);
  constants.c4 = std::sqrt(2 / (n - 1)) * std::exp(std::lgamma(n / 2) - std::lgamma((n - 1) / 2));
  const double spreadOfDeviation = std::sqrt(1 - constants.c4 * constants.c4);
  constants.A2 = 3 / (constants.d2 * std::sqrt(n));
  constants.A3 = 3 / (constants.c4 * std::sqrt(n));
  constants.B3 = std::max(0.0, 1 - 3 * spreadOfDeviation / constants.c4);
  constants.B4 = 1 + 3 * spreadOfDeviation / constants.c4;
  constants.D3 = std::max(0.0, 1 - 3 * constants.d3 / constants.d2);
  constants.D4 = 1 + 3 * constants.d3 / constants.d2;
  return constants;
}

Figure d2Star(std::int64_t subgroupSize, std::int64_t ranges) {
  if (ranges < 1) return Figure::absent("no ranges");
  const Computed<ControlConstants> constants = controlConstants(subgroupSize);
  if (!constants) return Figure::absent(constants.reason());
  return std::sqrt(constants->d2 * constants->d2 +
                   constants->d3 * constants->d3 / static_cast<double>(ranges));
}

}  // namespace statistics
