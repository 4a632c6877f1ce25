#include "statistics/Normality.h"

#include <cmath>

#include "statistics/Distributions.h"

namespace statistics {

namespace {

/// The approximations of D'Agostino and Stephens (1986), table 4.9.
double probability(double adjusted) {
  const double a = adjusted;
  if (a <= 0.2) return 1 - std::exp(-13.436 + 101.14 * a - 223.73 * a * a);
  if (a <= 0.34) return 1 - std::exp(-8.318 + 42.796 * a - 59.938 * a * a);
  if (a < 0.6) return std::exp(0.9177 - 4.279 * a - 1.38 * a * a);
  // Beyond its range the last approximation would rise again.
  if (a < 10) return std::exp(1.2937 - 5.709 * a + 0.0186 * a * a);
  return std::exp(1.2937 - 57.09 + 1.86);
}

}  // namespace

Computed<Normality> andersonDarling(const SortedValues& sorted, const Summary& summary) {
  if (sorted.n() < 8) return Computed<Normality>::absent("fewer than 8 values");
  if (sorted.allEqual()) return Computed<Normality>::absent("all values are equal");
  if (!summary.standardDeviation) {
    return Computed<Normality>::absent(summary.standardDeviation.reason());
  }
  const std::span<const double> values = sorted.values();
  const double mean = *summary.mean;
  const double deviation = *summary.standardDeviation;
  const double n = static_cast<double>(values.size());
  double sum = 0;
  for (std::size_t i = 0; i < values.size(); ++i) {
    // Each value once, with the weights that it has from below and from above.
    const double z = (values[i] - mean - summary.meanRest) / deviation;
    const double fromBelow = 2 * static_cast<double>(i) + 1;
    sum += fromBelow * distributions::logNormalBelow(z) +
           (2 * n - fromBelow) * distributions::logNormalBelow(-z);
  }
  Normality normality;
  normality.statistic = -n - sum / n;
  normality.adjusted = normality.statistic * (1 + 0.75 / n + 2.25 / (n * n));
  normality.p = probability(normality.adjusted);
  return normality;
}

}  // namespace statistics
