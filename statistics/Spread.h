#pragma once

#include <cmath>
#include <cstdint>
#include <span>

#include "statistics/Computed.h"

namespace statistics {

/// A standard deviation, and how much is known of it.
struct Spread {
  double deviation = 0;
  /// Of the chi-square distribution that `deviation`, squared, follows (nearly) when values are
  /// normal. No whole number where it is an approximation.
  double degreesOfFreedom = 0;
};

inline bool isFinite(const Spread& spread) { return std::isfinite(spread.deviation); }

/// The deviation within, of values measured one by one: their mean moving range, divided by d2 of
/// two values. `values` stand in the order of measuring; those that are not finite are left out,
/// their neighbours become neighbours. Absent with fewer than two values.
Computed<Spread> movingRangeSpread(std::span<const double> values);

/// The deviation within subgroups, pooled. `subgroups` says for each value to which subgroup it
/// belongs. Values that are not finite are left out. Absent when the two differ in length, or no
/// subgroup has two values.
Computed<Spread> pooledSpread(std::span<const double> values,
                              std::span<const std::int64_t> subgroups);

}  // namespace statistics
