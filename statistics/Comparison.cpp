#include "statistics/Comparison.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

#include "statistics/Distributions.h"

namespace statistics {

namespace {

constexpr std::int64_t kLeastForRanks = 8;

using Absent = Computed<Significance>;

/// What Welch's test is computed from.
struct Difference {
  double shift = 0;
  double standardError = 0;
  double degreesOfFreedom = 0;
};

double shiftOf(const Summary& first, const Summary& second) {
  return (*second.mean - *first.mean) + (second.meanRest - first.meanRest);
}

Computed<Difference> differenceOf(const Summary& first, const Summary& second) {
  for (const Summary* side : {&first, &second}) {
    if (!side->standardDeviation) {
      return Computed<Difference>::absent(side->standardDeviation.reason());
    }
  }
  // As shares of their sum, the squared errors stay within the range of numbers.
  const double firstError = *first.standardDeviation / std::sqrt(static_cast<double>(first.n));
  const double secondError = *second.standardDeviation / std::sqrt(static_cast<double>(second.n));
  Difference difference;
  difference.shift = shiftOf(first, second);
  difference.standardError = std::hypot(firstError, secondError);
  if (!(difference.standardError > 0)) {
    return Computed<Difference>::absent("neither side has a spread");
  }
  const double share = std::pow(firstError / difference.standardError, 2);
  const double rest = std::pow(secondError / difference.standardError, 2);
  difference.degreesOfFreedom = 1 / (share * share / static_cast<double>(first.n - 1) +
                                     rest * rest / static_cast<double>(second.n - 1));
  return difference;
}

Computed<Interval> shiftInterval(const Computed<Difference>& difference, double confidence) {
  if (!difference) return Computed<Interval>::absent(difference.reason());
  if (!distributions::isBetween(confidence)) {
    return Computed<Interval>::absent("the confidence is not between 0 and 1");
  }
  const double half =
      distributions::studentQuantile((1 + confidence) / 2, difference->degreesOfFreedom) *
      difference->standardError;
  return Interval{difference->shift - half, difference->shift + half};
}

Computed<Significance> welch(const Computed<Difference>& difference) {
  if (!difference) return Absent::absent(difference.reason());
  Significance significance;
  significance.statistic = difference->shift / difference->standardError;
  significance.degreesOfFreedom = difference->degreesOfFreedom;
  significance.p =
      distributions::studentTwoSided(significance.statistic, significance.degreesOfFreedom);
  return significance;
}

Figure spreadRatio(const Summary& first, const Summary& second) {
  if (!first.standardDeviation) return first.standardDeviation;
  if (!second.standardDeviation) return second.standardDeviation;
  if (*first.standardDeviation == 0) return Figure::absent("the first side has no spread");
  return *second.standardDeviation / *first.standardDeviation;
}

/// What the ranks of two sets in one order come to.
struct Ranks {
  double sumOfSecond = 0;
  /// Of t cubed less t over every t values that are the same.
  double ties = 0;
};

Ranks ranksOf(std::span<const double> first, std::span<const double> second) {
  Ranks ranks;
  auto a = first.begin();
  auto b = second.begin();
  double before = 0;
  while (a != first.end() || b != second.end()) {
    const double value = b == second.end() || (a != first.end() && *a < *b) ? *a : *b;
    const auto endOfA = std::find_if(a, first.end(), [&](double other) { return other != value; });
    const auto endOfB = std::find_if(b, second.end(), [&](double other) { return other != value; });
    const auto ofSecond = static_cast<double>(endOfB - b);
    const double same = static_cast<double>(endOfA - a) + ofSecond;
    ranks.sumOfSecond += ofSecond * (before + (same + 1) / 2);
    ranks.ties += same * same * same - same;
    before += same;
    a = endOfA;
    b = endOfB;
  }
  return ranks;
}

Computed<Significance> mannWhitney(const SortedValues& first, const SortedValues& second) {
  if (std::min(first.n(), second.n()) < kLeastForRanks) {
    return Absent::absent("fewer than 8 values on a side");
  }
  if (std::min(first.values().front(), second.values().front()) ==
      std::max(first.values().back(), second.values().back())) {
    return Absent::absent("all values are equal");
  }
  const Ranks ranks = ranksOf(first.values(), second.values());
  const auto ofFirst = static_cast<double>(first.n());
  const auto ofSecond = static_cast<double>(second.n());
  const double all = ofFirst + ofSecond;
  const double variance = ofFirst * ofSecond / 12 * (all + 1 - ranks.ties / (all * (all - 1)));
  const double u = ranks.sumOfSecond - ofSecond * (ofSecond + 1) / 2;
  const double distance = u - ofFirst * ofSecond / 2;
  Significance significance;
  significance.statistic =
      std::copysign(std::max(0.0, std::abs(distance) - 0.5), distance) / std::sqrt(variance);
  significance.p = 2 * distributions::normalAbove(std::abs(significance.statistic));
  return significance;
}

/// The distances of a set's values to their median.
struct Distances {
  double n = 0;
  double mean = 0;
  /// Of the distances' own distances to their mean, squared.
  double squares = 0;
};

Distances distancesOf(const SortedValues& sorted) {
  Distances distances;
  if (sorted.n() == 0) return distances;
  // The median of an even number of values as one of the middle ones and half their distance: their
  // mean itself may be no number.
  const std::span<const double> values = sorted.values();
  const double middle = values[(values.size() - 1) / 2];
  const double half = (values[values.size() / 2] - middle) / 2;
  for (const double value : values) {
    const double distance = std::abs(value - middle - half);
    const double before = distance - distances.mean;
    distances.mean += before / ++distances.n;
    distances.squares += before * (distance - distances.mean);
  }
  return distances;
}

/// The analysis of variance of distances, one way.
Computed<Significance> levene(std::span<const Distances> sets) {
  if (sets.size() < 2) return Absent::absent("fewer than 2 sets");
  Distances all;
  for (const Distances& set : sets) {
    if (set.n < 2) return Absent::absent("fewer than 2 values");
    all.n += set.n;
    all.mean += set.n * set.mean;
    all.squares += set.squares;
  }
  all.mean /= all.n;
  if (!(all.squares > 0)) return Absent::absent("the distances to the medians do not vary");
  double between = 0;
  for (const Distances& set : sets) between += set.n * std::pow(set.mean - all.mean, 2);
  Significance significance;
  significance.degreesOfFreedom = static_cast<double>(sets.size() - 1);
  significance.denominatorDegrees = all.n - static_cast<double>(sets.size());
  significance.statistic =
      (between / significance.degreesOfFreedom) / (all.squares / significance.denominatorDegrees);
  significance.p = distributions::fAbove(significance.statistic, significance.degreesOfFreedom,
                                         significance.denominatorDegrees);
  return significance;
}

}  // namespace

Computed<Significance> brownForsythe(std::span<const SortedValues> sets) {
  std::vector<Distances> distances;
  for (const SortedValues& set : sets) distances.push_back(distancesOf(set));
  return levene(distances);
}

Comparison compare(const SortedValues& first, const SortedValues& second, double confidence) {
  const Summary before = summarize(first);
  const Summary after = summarize(second);
  const Computed<Difference> difference = differenceOf(before, after);
  Comparison comparison;
  if (before.mean && after.mean) {
    comparison.shift = shiftOf(before, after);
  } else {
    comparison.shift = Figure::absent("no values on one side");
  }
  comparison.shiftInterval = shiftInterval(difference, confidence);
  comparison.means = welch(difference);
  comparison.spreadRatio = spreadRatio(before, after);
  comparison.spreads = levene(std::array{distancesOf(first), distancesOf(second)});
  comparison.ranks = mannWhitney(first, second);
  return comparison;
}

}  // namespace statistics
