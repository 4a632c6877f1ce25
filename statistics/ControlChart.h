#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "statistics/Computed.h"

namespace statistics {

/// The rules of Western Electric: what is unlikely while nothing changes.
enum class Rule {
  BeyondThree,     ///< 1: one point beyond three deviations
  TwoOfThree,      ///< 2: two of three points in a row beyond two deviations, on the same side
  FourOfFive,      ///< 3: four of five points in a row beyond one deviation, on the same side
  EightOnOneSide,  ///< 4: eight points in a row on the same side of the centre
};

/// A rule in words: "two of three points beyond two deviations on the same side".
std::string_view words(Rule rule);

/// Where a rule finds something. Points are counted from 0, the left-out ones too.
struct Signal {
  Rule rule = Rule::BeyondThree;
  /// The point that completes it, itself one of `points`.
  std::size_t at = 0;
  /// The points that offend, in order.
  std::vector<std::size_t> points;
};

struct ChartLimits {
  double centre = 0;
  double lower = 0;
  double upper = 0;
};

inline bool isFinite(const ChartLimits& limits) {
  return std::isfinite(limits.lower) && std::isfinite(limits.centre) && std::isfinite(limits.upper);
}

/// A chart of individual values and of their moving ranges.
struct IndividualsChart {
  std::int64_t n = 0;
  std::int64_t notNumbers = 0;
  std::int64_t infinite = 0;
  /// The mean moving range over d2. Absent with fewer than two values.
  Figure deviation;
  /// Mean, and three deviations to both sides. Absent with the deviation.
  Computed<ChartLimits> values;
  /// Mean moving range, 0, and D4 times that mean. Absent with the deviation.
  Computed<ChartLimits> ranges;
  /// Of the values, by rule and then by point. Empty when the deviation is absent or 0.
  std::vector<Signal> signals;
  /// The points whose distance to the one before is above the limit of the ranges.
  std::vector<std::size_t> rangesAbove;
};

/// `values` stand in the order of measuring; those that are not finite are left out, their
/// neighbours become neighbours.
IndividualsChart individualsChart(std::span<const double> values);

/// What the rules find in values around a centre. `deviation` must be above 0; without it nothing
/// is found. Values that are not finite are left out.
std::vector<Signal> signals(std::span<const double> values, double centre, double deviation);

}  // namespace statistics
