#pragma once

#include <cstdint>

#include "statistics/Computed.h"

namespace statistics {

/// How often something happened.
struct Proportion {
  std::int64_t hits = 0;
  std::int64_t total = 0;
  /// hits / total, from 0 to 1. Absent when there is nothing to count, or the counts contradict
  /// each other.
  Figure fraction;
  /// Wilson's score interval of the fraction, within 0 and 1. Absent with the fraction, or when
  /// `confidence` is none.
  Computed<Interval> interval;
};

/// The proportion of `hits` among `total`. `confidence` is that of the two-sided interval, between
/// 0 and 1.
Proportion proportion(std::int64_t hits, std::int64_t total, double confidence = 0.95);

}  // namespace statistics
