#include "statistics/Summary.h"

#include <algorithm>
#include <cmath>

#include "statistics/Mean.h"

namespace statistics {

namespace {

constexpr const char* kNoValues = "no values";

double deviationOf(std::span<const double> sorted, double mean) {
  // Squares of very small or large distances leave the range of numbers, those of their shares of
  // the largest do not.
  const double largest = std::max(mean - sorted.front(), sorted.back() - mean);
  double squares = 0;
  double rest = 0;
  for (const double value : sorted) {
    const double share = (value - mean) / largest;
    squares += share * share;
    rest += share;
  }
  const double n = static_cast<double>(sorted.size());
  return largest * std::sqrt(std::max(0.0, squares - rest * rest / n) / (n - 1));
}

}  // namespace

SortedValues::SortedValues(std::span<const double> values) {
  values_.reserve(values.size());
  for (const double value : values) {
    if (std::isfinite(value)) {
      values_.push_back(value);
    } else {
      ++(std::isnan(value) ? notNumbers_ : infinite_);
    }
  }
  std::sort(values_.begin(), values_.end());
}

Summary summarize(const SortedValues& sorted) {
  Summary summary;
  summary.n = sorted.n();
  summary.notNumbers = sorted.notNumbers();
  summary.infinite = sorted.infinite();
  summary.allEqual = sorted.allEqual();
  summary.median = percentile(sorted, 50);
  if (sorted.n() == 0) {
    summary.mean = summary.standardDeviation = summary.minimum = summary.maximum =
        Figure::absent(kNoValues);
    return summary;
  }
  const std::span<const double> values = sorted.values();
  summary.minimum = values.front();
  summary.maximum = values.back();
  const Mean mean = meanOf(values, values[values.size() / 2]);
  summary.mean = mean.rounded;
  summary.meanRest = mean.rest;
  if (values.size() < 2) {
    summary.standardDeviation = Figure::absent("fewer than 2 values");
  } else {
    summary.standardDeviation = summary.allEqual ? 0 : deviationOf(values, mean.rounded);
  }
  return summary;
}

Figure percentile(const SortedValues& sorted, double percent) {
  if (!(percent >= 0 && percent <= 100)) {
    return Figure::absent("the percentage is not between 0 and 100");
  }
  if (sorted.n() == 0) return Figure::absent(kNoValues);
  const std::span<const double> values = sorted.values();
  const double rank = static_cast<double>(values.size() - 1) * (percent / 100);
  const auto below = static_cast<std::size_t>(rank);
  const std::size_t above = std::min(below + 1, values.size() - 1);
  return std::lerp(values[below], values[above], rank - std::floor(rank));
}

}  // namespace statistics
