#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "statistics/Computed.h"

namespace statistics {

/// The finite ones of some values, smallest first, and how many were left out. Made once, it serves
/// every function that does not ask for the order of measuring.
class SortedValues {
 public:
  /// Copies the finite values, once.
  explicit SortedValues(std::span<const double> values);

  std::span<const double> values() const { return values_; }
  /// How many there are, the left-out ones not counted.
  std::int64_t n() const { return static_cast<std::int64_t>(values_.size()); }
  /// How many were left out because they are no number (NaN).
  std::int64_t notNumbers() const { return notNumbers_; }
  /// How many were left out because they are infinite.
  std::int64_t infinite() const { return infinite_; }
  /// Whether there are values and all of them are the same.
  bool allEqual() const { return !values_.empty() && values_.front() == values_.back(); }

 private:
  std::vector<double> values_;
  std::int64_t notNumbers_ = 0;
  std::int64_t infinite_ = 0;
};

/// Some values in short, in their own unit.
struct Summary {
  std::int64_t n = 0;
  std::int64_t notNumbers = 0;
  std::int64_t infinite = 0;
  bool allEqual = false;
  /// Absent without values, as all below.
  Figure mean;
  /// What rounding has cut off the mean: a distance to `mean` less this is exact even where the
  /// digits of a number end just below the spread.
  double meanRest = 0;
  /// The overall one, of a sample (n - 1). Absent with fewer than two values.
  Figure standardDeviation;
  Figure minimum;
  Figure maximum;
  Figure median;
};

/// Accurate for values far from 0 with a small spread, and for spreads as small or large as numbers
/// can be.
Summary summarize(const SortedValues& sorted);

/// The value that `percent` (0 to 100) of all values do not exceed, interpolated between the two
/// nearest ranks (type 7 of Hyndman and Fan). Absent without values, or when there is no such
/// percentage.
Figure percentile(const SortedValues& sorted, double percent);

}  // namespace statistics
