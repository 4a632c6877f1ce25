#include "statistics/Proportion.h"

#include <algorithm>
#include <cmath>

#include "statistics/Distributions.h"

namespace statistics {

Proportion proportion(std::int64_t hits, std::int64_t total, double confidence) {
  Proportion proportion{.hits = hits, .total = total, .fraction = {}, .interval = {}};
  if (hits < 0 || hits > total) {
    proportion.fraction = Figure::absent("the counts contradict each other");
  } else if (total == 0) {
    proportion.fraction = Figure::absent("nothing to count");
  } else {
    proportion.fraction = static_cast<double>(hits) / static_cast<double>(total);
  }
  if (!proportion.fraction) {
    proportion.interval = Computed<Interval>::absent(proportion.fraction.reason());
    return proportion;
  }
  if (!distributions::isBetween(confidence)) {
    proportion.interval = Computed<Interval>::absent("the confidence is not between 0 and 1");
    return proportion;
  }
  const double n = static_cast<double>(total);
  const double p = *proportion.fraction;
  const double z = distributions::normalQuantile(0.5 + confidence / 2);
  const double centre = (p + z * z / (2 * n)) / (1 + z * z / n);
  const double half = z * std::sqrt(p * (1 - p) / n + z * z / (4 * n * n)) / (1 + z * z / n);
  // At 0 and 1 the bound is exact; rounding must not move it.
  proportion.interval = Interval{hits == 0 ? 0 : std::max(0.0, centre - half),
                                 hits == total ? 1 : std::min(1.0, centre + half)};
  return proportion;
}

}  // namespace statistics
