#pragma once

#include <cstdint>

#include "statistics/Computed.h"

namespace statistics {

/// The constants of control charts for subgroups of one size, when values are normal. Each is
/// computed from its definition.
struct ControlConstants {
  double d2 = 0;  ///< mean of the range, in deviations
  double d3 = 0;  ///< standard deviation of the range, in deviations
  double c4 = 0;  ///< mean of the standard deviation, in deviations
  double A2 = 0;  ///< limits of means, in mean ranges
  double A3 = 0;  ///< limits of means, in mean standard deviations
  double B3 = 0;  ///< lower limit of standard deviations, in their mean
  double B4 = 0;  ///< upper one
  double D3 = 0;  ///< lower limit of ranges, in their mean
  double D4 = 0;  ///< upper one
};

/// Absent for subgroups of fewer than 2 or more than 1000.
Computed<ControlConstants> controlConstants(std::int64_t subgroupSize);

/// d2*: what the mean of `ranges` ranges, of subgroups of one size, is divided by for the deviation
/// when the ranges are few. Absent without ranges, or for sizes that have no constants.
Figure d2Star(std::int64_t subgroupSize, std::int64_t ranges);

}  // namespace statistics
