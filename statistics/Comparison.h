#pragma once

#include <cmath>
#include <span>

#include "statistics/Computed.h"
#include "statistics/Summary.h"

namespace statistics {

/// The outcome of a test of significance.
struct Significance {
  /// t, F or z.
  double statistic = 0;
  /// Of t, or of F's numerator; of z 0.
  double degreesOfFreedom = 0;
  /// Of F's denominator; else 0.
  double denominatorDegrees = 0;
  /// The probability of a difference at least as large when there is none.
  double p = 0;
};

inline bool isFinite(const Significance& significance) {
  return std::isfinite(significance.statistic) && std::isfinite(significance.p);
}

/// Two sets of values side by side.
struct Comparison {
  /// Mean of the second less that of the first.
  Figure shift;
  Computed<Interval> shiftInterval;
  /// Welch's t, two-sided. Absent with fewer than two values on a side, or when neither side has a
  /// spread.
  Computed<Significance> means;
  /// Deviation of the second over that of the first. Absent when the first has none.
  Figure spreadRatio;
  /// As brownForsythe().
  Computed<Significance> spreads;
  /// Mann and Whitney's test of the ranks, by its normal approximation with corrections for ties
  /// and continuity, two-sided: the hint where values are not normal. Absent with fewer than 8
  /// values on a side, or when all are equal.
  Computed<Significance> ranks;
};

/// Whether the spreads of two or more sets of values differ: Levene's F around the medians. Absent
/// with fewer than two sets, a set of fewer than two values, or when the distances to the medians
/// do not vary within the sets.
Computed<Significance> brownForsythe(std::span<const SortedValues> sets);

/// `confidence` is that of the shift's two-sided interval, between 0 and 1.
Comparison compare(const SortedValues& first, const SortedValues& second, double confidence = 0.95);

}  // namespace statistics
