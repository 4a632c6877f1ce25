#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "statistics/Computed.h"
#include "statistics/Summary.h"

namespace statistics {

enum class BinRule { FreedmanDiaconis, Sturges };

/// How many values fall into each of some bins of the same width.
struct Histogram {
  /// The lower edge of the first bin: the smallest value.
  double lower = 0;
  /// Of each bin; 0 when all values are the same, and then there is one bin.
  double width = 0;
  /// Of each bin, in order. A value on an edge belongs to the bin above it, the largest value to
  /// the last bin.
  std::vector<std::int64_t> counts;
  /// The rule that gave the number of bins: without a distance between the quartiles that of
  /// Freedman and Diaconis cannot, and Sturges' takes its place.
  BinRule rule = BinRule::FreedmanDiaconis;
};

/// At most `mostBins` (1 or more) bins. Absent without values, or when they lie further apart than
/// a number can say.
Computed<Histogram> histogram(const SortedValues& sorted, BinRule rule = BinRule::FreedmanDiaconis,
                              std::size_t mostBins = 60);

}  // namespace statistics
