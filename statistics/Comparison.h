#pragma once

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
  /// Brown and Forsythe's F: Levene's test around the medians. Absent when too few values, or no
  /// distances to the medians differ.
  Computed<Significance> spreads;
  /// Mann and Whitney's test of the ranks, by its normal approximation with corrections for ties
  /// and continuity, two-sided: the hint where values are not normal. Absent with fewer than 8
  /// values on a side, or when all are equal.
  Computed<Significance> ranks;
};

/// `confidence` is that of the shift's two-sided interval, between 0 and 1.
Comparison compare(const SortedValues& first, const SortedValues& second, double confidence = 0.95);

}  // namespace statistics
