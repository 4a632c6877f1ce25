#include "statistics/Mean.h"

#include <cmath>

namespace statistics {

Mean meanOf(std::span<const double> values, double near) {
  // As distances from a value among them, values far from 0 keep their digits. What the first pass
  // leaves of rounding, the second finds.
  Mean mean{.n = 0, .rounded = near, .rest = 0};
  for (int pass = 0; pass < 2; ++pass) {
    double sum = 0;
    mean.n = 0;
    for (const double value : values) {
      if (!std::isfinite(value)) continue;
      sum += value - mean.rounded;
      ++mean.n;
    }
    if (mean.n == 0) return {};
    const double distance = sum / static_cast<double>(mean.n);
    const double before = mean.rounded;
    mean.rounded += distance;
    mean.rest = distance - (mean.rounded - before);
  }
  return mean;
}

}  // namespace statistics
