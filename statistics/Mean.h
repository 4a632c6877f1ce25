#pragma once

// Internal to statistics/.

#include <span>

namespace statistics {

/// The mean of those values that are finite.
struct Mean {
  double rounded = 0;
  /// What rounding has cut off.
  double rest = 0;
};

/// `near` is one of them, better none of the extreme ones.
Mean meanOf(std::span<const double> values, double near);

}  // namespace statistics
