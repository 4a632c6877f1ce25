#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "statistics/Computed.h"
#include "statistics/Normality.h"
#include "statistics/Spread.h"
#include "statistics/Summary.h"

namespace statistics {

/// What a value has to lie between; either may be absent. A limit that is not finite is none.
struct Limits {
  std::optional<double> lower;
  std::optional<double> upper;
};

/// An index of capability, with its two-sided confidence interval.
struct Index {
  Figure value;
  /// Absent with the value, or when there are too few values for it.
  Computed<Interval> interval;
};

/// How many in a million would miss the limits if values were normal.
struct ExpectedPpm {
  /// Absent when there is no such limit.
  Figure below;
  Figure above;
  /// Those beyond the limits there are.
  Figure outside;
};

/// The indices by one deviation: Cp, Cpl, Cpu, Cpk by that within, Pp, Ppl, Ppu, Ppk by the overall
/// one.
struct Indices {
  /// The tolerance over six deviations. Absent without both limits.
  Index both;
  /// From the lower limit to the mean, over three deviations. Absent without that limit.
  Index lower;
  /// From the mean to the upper limit, over three deviations. Absent without that limit.
  Index upper;
  /// The smaller of the two; of one limit alone that one.
  Index nearest;
  ExpectedPpm ppm;
};

enum class Warning {
  FewValues,  ///< fewer than 30
  AllEqual,
  NotNormal,  ///< Anderson and Darling's p is below 0.05
  LeftOut,    ///< some values were not finite
};

/// A warning in words, as part of a sentence: "fewer than 30 values".
std::string_view words(Warning warning);

struct Capability {
  Indices within;
  Indices overall;
  /// In the order of the enumeration.
  std::vector<Warning> warnings;
};

/// How well values keep within limits. `confidence` is that of the intervals, between 0 and 1. No
/// index is computed from a deviation of 0, or when the lower limit is not below the upper one.
Capability capability(const Summary& summary, const Computed<Spread>& within,
                      const Computed<Normality>& normality, const Limits& limits,
                      double confidence = 0.95);

/// How many values lie below the lower and above the upper limit.
struct Outside {
  std::int64_t below = 0;
  std::int64_t above = 0;
};

Outside outside(const SortedValues& sorted, const Limits& limits);

}  // namespace statistics
