#include "statistics/Spread.h"

#include <cmath>
#include <numbers>
#include <unordered_map>

#include "statistics/RangeOfTwo.h"

namespace statistics {

namespace {

/// Of normal values with the deviation 1: the covariance of two distances that share a value.
const double kSharedCovariance =
    (4 / std::numbers::pi) * (std::sqrt(0.75) + std::numbers::pi / 12 - 1);

/// Mean and squares of distances as they grow; relative to the first value, so that values far from
/// 0 keep their digits.
struct Subgroup {
  void add(double value) {
    if (n == 0) first = value;
    const double distance = value - first - mean;
    mean += distance / static_cast<double>(++n);
    squares += distance * (value - first - mean);
  }

  std::int64_t n = 0;
  double first = 0;
  double mean = 0;
  double squares = 0;
};

}  // namespace

Computed<Spread> movingRangeSpread(std::span<const double> values) {
  std::int64_t ranges = -1;
  double last = 0;
  double meanRange = 0;
  for (const double value : values) {
    if (!std::isfinite(value)) continue;
    ++ranges;
    // A running mean stays within the range of numbers.
    if (ranges > 0) {
      meanRange += (std::abs(value - last) - meanRange) / static_cast<double>(ranges);
    }
    last = value;
  }
  if (ranges < 1) return Computed<Spread>::absent("fewer than 2 values");
  const double m = static_cast<double>(ranges);
  const double variance = (m * kVarianceOfTwo + 2 * (m - 1) * kSharedCovariance) / (m * m);
  return Spread{meanRange / kMeanOfTwo, kMeanOfTwo * kMeanOfTwo / (2 * variance)};
}

Computed<Spread> pooledSpread(std::span<const double> values,
                              std::span<const std::int64_t> subgroups) {
  if (values.size() != subgroups.size()) {
    return Computed<Spread>::absent("not every value belongs to a subgroup");
  }
  std::unordered_map<std::int64_t, Subgroup> pool;
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (std::isfinite(values[i])) pool[subgroups[i]].add(values[i]);
  }
  double squares = 0;
  std::int64_t degrees = 0;
  for (const auto& [number, subgroup] : pool) {
    squares += subgroup.squares;
    degrees += subgroup.n - 1;
  }
  if (degrees == 0) return Computed<Spread>::absent("no subgroup has 2 values");
  return Spread{std::sqrt(squares / static_cast<double>(degrees)), static_cast<double>(degrees)};
}

}  // namespace statistics
