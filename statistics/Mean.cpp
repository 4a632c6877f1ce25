#include "statistics/Mean.h"

#include <cmath>
#include <cstdint>

namespace statistics {

Mean meanOf(std::span<const double> values, double near) {
  // As distances from a value among them, values far from 0 keep their digits.
  double sum = 0;
  std::int64_t n = 0;
  for (const double value : values) {
    if (!std::isfinite(value)) continue;
    sum += value - near;
    ++n;
  }
  if (n == 0) return {};
  const double distance = sum / static_cast<double>(n);
  const double rounded = near + distance;
  return {rounded, distance - (rounded - near)};
}

}  // namespace statistics
