#pragma once

#include <cmath>

#include "statistics/Computed.h"
#include "statistics/Summary.h"

namespace statistics {

/// Whether values look as if drawn from a normal distribution: the test of Anderson and Darling
/// with mean and deviation estimated.
struct Normality {
  /// A squared.
  double statistic = 0;
  /// A squared, corrected for the number of values.
  double adjusted = 0;
  /// The probability of values at least as far from normal when they are normal; small speaks
  /// against it. Below 4e-24 that bound.
  double p = 0;
};

inline bool isFinite(const Normality& normality) { return std::isfinite(normality.statistic); }

/// A hint, no proof: few values hide what many show, and of very many the rounding alone is found.
/// Absent with fewer than eight values, or when all are equal.
Computed<Normality> andersonDarling(const SortedValues& sorted, const Summary& summary);

}  // namespace statistics
