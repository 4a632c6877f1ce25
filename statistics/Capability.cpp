#include "statistics/Capability.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "statistics/Distributions.h"

namespace statistics {

namespace {

constexpr double kNotNormalBelow = 0.05;
constexpr std::int64_t kEnoughValues = 30;

/// A limit, or why there is none to compute with.
struct UsableLimits {
  explicit UsableLimits(const Limits& limits) {
    lower = usable(limits.lower, "no lower limit");
    upper = usable(limits.upper, "no upper limit");
    if (!lower && !upper) {
      width = Figure::absent("no limits");
    } else if (!lower || !upper) {
      width = Figure::absent("only one limit");
    } else if (*lower >= *upper) {
      width = lower = upper = Figure::absent("the lower limit is not below the upper one");
    } else {
      width = *upper - *lower;
    }
  }

  static Figure usable(const std::optional<double>& limit, const char* reason) {
    return limit && std::isfinite(*limit) ? Figure(*limit) : Figure::absent(reason);
  }

  Figure lower;
  Figure upper;
  Figure width;
};

/// What the indices are computed from; `trouble` says why none can be.
struct Process {
  double n = 0;
  double mean = 0;
  double meanRest = 0;
  Spread spread;
  std::string trouble;
};

Process processOf(const Summary& summary, const Computed<Spread>& spread) {
  Process process;
  if (!summary.mean) {
    process.trouble = summary.mean.reason();
  } else if (!spread) {
    process.trouble = spread.reason();
  } else if (summary.allEqual) {
    process.trouble = "all values are equal";
  } else if (!(spread->deviation > 0)) {
    process.trouble = "the deviation is 0";
  } else {
    process.n = static_cast<double>(summary.n);
    process.mean = *summary.mean;
    process.meanRest = summary.meanRest;
    process.spread = *spread;
  }
  return process;
}

Index absentIndex(const std::string& reason) {
  return {Figure::absent(reason), Computed<Interval>::absent(reason)};
}

Computed<Interval> intervalOf(const Figure& index, double confidence, const auto& bounds) {
  if (!index) return Computed<Interval>::absent(index.reason());
  if (!distributions::isBetween(confidence)) {
    return Computed<Interval>::absent("the confidence is not between 0 and 1");
  }
  return bounds();
}

Index indexOfBoth(const Process& process, const Figure& width, double confidence) {
  if (!width) return absentIndex(width.reason());
  const Figure index = *width / (6 * process.spread.deviation);
  return {index, intervalOf(index, confidence, [&] {
            const double degrees = process.spread.degreesOfFreedom;
            const auto bound = [&](double probability) {
              const double quantile = distributions::chiSquareQuantile(probability, degrees);
              return *index * std::sqrt(quantile / degrees);
            };
            return Interval{bound((1 - confidence) / 2), bound((1 + confidence) / 2)};
          })};
}

/// Of the distance from the mean to a limit.
Index indexOfOne(const Process& process, const Figure& distance, double confidence) {
  if (!distance) return absentIndex(distance.reason());
  const Figure index = *distance / (3 * process.spread.deviation);
  return {index, intervalOf(index, confidence, [&] {
            const double half = distributions::normalQuantile((1 + confidence) / 2) *
                                std::sqrt(1 / (9 * process.n) +
                                          *index * *index / (2 * process.spread.degreesOfFreedom));
            return Interval{*index - half, *index + half};
          })};
}

Figure ppmBeyond(const Process& process, const Figure& distance) {
  if (!distance) return distance;
  return 1e6 * distributions::normalAbove(*distance / process.spread.deviation);
}

Indices indicesOf(const Process& process, const UsableLimits& limits, double confidence) {
  if (!process.trouble.empty()) {
    const Index none = absentIndex(process.trouble);
    return {none, none, none, none, {none.value, none.value, none.value}};
  }
  const Figure toLower =
      limits.lower ? Figure(process.mean - *limits.lower + process.meanRest) : limits.lower;
  const Figure toUpper =
      limits.upper ? Figure(*limits.upper - process.mean - process.meanRest) : limits.upper;
  Indices indices;
  indices.both = indexOfBoth(process, limits.width, confidence);
  indices.lower = indexOfOne(process, toLower, confidence);
  indices.upper = indexOfOne(process, toUpper, confidence);
  indices.ppm.below = ppmBeyond(process, toLower);
  indices.ppm.above = ppmBeyond(process, toUpper);
  if (toLower && toUpper) {
    indices.nearest = *toLower < *toUpper ? indices.lower : indices.upper;
    indices.ppm.outside = *indices.ppm.below + *indices.ppm.above;
  } else if (toLower || toUpper) {
    indices.nearest = toLower ? indices.lower : indices.upper;
    indices.ppm.outside = toLower ? indices.ppm.below : indices.ppm.above;
  } else {
    indices.nearest = absentIndex(limits.width.reason());
    indices.ppm.outside = Figure::absent(limits.width.reason());
  }
  return indices;
}

}  // namespace

std::string_view words(Warning warning) {
  switch (warning) {
    case Warning::FewValues:
      return "fewer than 30 values";
    case Warning::AllEqual:
      return "all values are equal";
    case Warning::NotNormal:
      return "not normally distributed";
    case Warning::LeftOut:
      return "some values are not finite and left out";
  }
  return {};
}

Capability capability(const Summary& summary, const Computed<Spread>& within,
                      const Computed<Normality>& normality, const Limits& limits,
                      double confidence) {
  const UsableLimits usable(limits);
  const Computed<Spread> overall =
      summary.standardDeviation
          ? Spread{*summary.standardDeviation, static_cast<double>(summary.n - 1)}
          : Computed<Spread>::absent(summary.standardDeviation.reason());
  Capability capability;
  capability.within = indicesOf(processOf(summary, within), usable, confidence);
  capability.overall = indicesOf(processOf(summary, overall), usable, confidence);
  const auto warn = [&](bool so, Warning warning) {
    if (so) capability.warnings.push_back(warning);
  };
  warn(summary.n < kEnoughValues, Warning::FewValues);
  warn(summary.allEqual, Warning::AllEqual);
  warn(normality && normality->p < kNotNormalBelow, Warning::NotNormal);
  warn(summary.notNumbers + summary.infinite > 0, Warning::LeftOut);
  return capability;
}

Outside outside(const SortedValues& sorted, const Limits& limits) {
  const std::span<const double> values = sorted.values();
  Outside outside;
  if (limits.lower && std::isfinite(*limits.lower)) {
    outside.below = std::lower_bound(values.begin(), values.end(), *limits.lower) - values.begin();
  }
  if (limits.upper && std::isfinite(*limits.upper)) {
    outside.above = values.end() - std::upper_bound(values.begin(), values.end(), *limits.upper);
  }
  return outside;
}

}  // namespace statistics
