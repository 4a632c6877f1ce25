#include "statistics/ControlChart.h"

#include <array>
#include <cmath>
#include <deque>

#include "statistics/Mean.h"
#include "statistics/RangeOfTwo.h"
#include "statistics/Spread.h"

namespace statistics {

namespace {

/// So many of so many points in a row lie beyond so many deviations on the same side.
struct Pattern {
  Rule rule;
  std::size_t least;
  std::size_t of;
  double deviations;
};

constexpr std::array kPatterns{
    Pattern{Rule::BeyondThree, 1, 1, 3}, Pattern{Rule::TwoOfThree, 2, 3, 2},
    Pattern{Rule::FourOfFive, 4, 5, 1}, Pattern{Rule::EightOnOneSide, 8, 8, 0}};

/// Looks for a pattern on one side, point by point.
class Search {
 public:
  Search(const Pattern& pattern, double side) : pattern_(pattern), side_(side) {}

  /// Takes the next point, the `number`-th of all; `distance` from the centre in deviations. Adds
  /// a signal when the point completes the pattern.
  void next(std::size_t point, std::size_t number, double distance, std::vector<Signal>& found) {
    while (!beyond_.empty() && beyond_.front().number + pattern_.of <= number) beyond_.pop_front();
    if (!(side_ * distance > pattern_.deviations)) return;
    beyond_.push_back({point, number});
    if (beyond_.size() < pattern_.least) return;
    Signal& signal = found.emplace_back(Signal{pattern_.rule, point, {}});
    for (const Beyond& beyond : beyond_) signal.points.push_back(beyond.point);
  }

 private:
  struct Beyond {
    std::size_t point;
    std::size_t number;
  };

  Pattern pattern_;
  double side_;
  /// The points beyond among the last ones that count.
  std::deque<Beyond> beyond_;
};

}  // namespace

std::string_view words(Rule rule) {
  switch (rule) {
    case Rule::BeyondThree:
      return "one point beyond three deviations";
    case Rule::TwoOfThree:
      return "two of three points beyond two deviations on the same side";
    case Rule::FourOfFive:
      return "four of five points beyond one deviation on the same side";
    case Rule::EightOnOneSide:
      return "eight points in a row on the same side of the centre";
  }
  return {};
}

std::vector<Signal> signals(std::span<const double> values, double centre, double deviation) {
  std::vector<Signal> found;
  if (!(deviation > 0)) return found;
  for (const Pattern& pattern : kPatterns) {
    Search above(pattern, 1);
    Search below(pattern, -1);
    std::size_t number = 0;
    for (std::size_t point = 0; point < values.size(); ++point) {
      if (!std::isfinite(values[point])) continue;
      const double distance = (values[point] - centre) / deviation;
      above.next(point, number, distance, found);
      below.next(point, number, distance, found);
      ++number;
    }
  }
  return found;
}

IndividualsChart individualsChart(std::span<const double> values) {
  IndividualsChart chart;
  double near = 0;
  for (const double value : values) {
    if (std::isfinite(value)) {
      ++chart.n;
      near = value;
    } else {
      ++(std::isnan(value) ? chart.notNumbers : chart.infinite);
    }
  }
  const Computed<Spread> spread = movingRangeSpread(values);
  if (!spread) {
    chart.deviation = Figure::absent(spread.reason());
    chart.values = chart.ranges = Computed<ChartLimits>::absent(spread.reason());
    return chart;
  }
  const double deviation = spread->deviation;
  const double mean = meanOf(values, near).rounded;
  const double meanRange = deviation * kMeanOfTwo;
  const double highestRange = meanRange + 3 * deviation * std::sqrt(kVarianceOfTwo);
  chart.deviation = deviation;
  chart.values = ChartLimits{mean, mean - 3 * deviation, mean + 3 * deviation};
  chart.ranges = ChartLimits{meanRange, 0, highestRange};
  chart.signals = signals(values, mean, deviation);
  double last = std::nan("");
  for (std::size_t point = 0; point < values.size(); ++point) {
    if (!std::isfinite(values[point])) continue;
    if (std::abs(values[point] - last) > highestRange) chart.rangesAbove.push_back(point);
    last = values[point];
  }
  return chart;
}

}  // namespace statistics
