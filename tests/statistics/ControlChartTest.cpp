#include "statistics/ControlChart.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "statistics/ControlConstants.h"

namespace {

using statistics::ControlConstants;
using statistics::individualsChart;
using statistics::IndividualsChart;
using statistics::Rule;
using statistics::Signal;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

struct Row {
  int n;
  double d2, d3, c4, A2, A3, B3, B4, D3, D4;
};

// ASTM, "Manual on Presentation of Data and Control Chart Analysis", and D. C. Montgomery,
// "Introduction to Statistical Quality Control", appendix "Factors for Constructing Variables
// Control Charts". The last digits of the two differ by one at some places.
TEST(ControlConstants, AreThoseOfTheTables) {
  for (const Row& row : {Row{2, 1.128, 0.853, 0.7979, 1.880, 2.659, 0, 3.267, 0, 3.267},
                         Row{3, 1.693, 0.888, 0.8862, 1.023, 1.954, 0, 2.568, 0, 2.574},
                         Row{4, 2.059, 0.880, 0.9213, 0.729, 1.628, 0, 2.266, 0, 2.282},
                         Row{5, 2.326, 0.864, 0.9400, 0.577, 1.427, 0, 2.089, 0, 2.114},
                         Row{6, 2.534, 0.848, 0.9515, 0.483, 1.287, 0.030, 1.970, 0, 2.004},
                         Row{7, 2.704, 0.833, 0.9594, 0.419, 1.182, 0.118, 1.882, 0.076, 1.924},
                         Row{8, 2.847, 0.820, 0.9650, 0.373, 1.099, 0.185, 1.815, 0.136, 1.864},
                         Row{9, 2.970, 0.808, 0.9693, 0.337, 1.032, 0.239, 1.761, 0.184, 1.816},
                         Row{10, 3.078, 0.797, 0.9727, 0.308, 0.975, 0.284, 1.716, 0.223, 1.777}}) {
    const ControlConstants constants = *statistics::controlConstants(row.n);
    EXPECT_NEAR(constants.d2, row.d2, 6e-4) << row.n;
    EXPECT_NEAR(constants.d3, row.d3, 6e-4) << row.n;
    EXPECT_NEAR(constants.c4, row.c4, 6e-5) << row.n;
    EXPECT_NEAR(constants.A2, row.A2, 6e-4) << row.n;
    EXPECT_NEAR(constants.A3, row.A3, 6e-4) << row.n;
    EXPECT_NEAR(constants.B3, row.B3, 6e-4) << row.n;
    EXPECT_NEAR(constants.B4, row.B4, 6e-4) << row.n;
    EXPECT_NEAR(constants.D3, row.D3, 6e-4) << row.n;
    EXPECT_NEAR(constants.D4, row.D4, 1.1e-3) << row.n;
  }
}

// NIST/SEMATECH e-Handbook of Statistical Methods, 6.3.2: the factors of the range chart.
TEST(ControlConstants, AreThoseOfTheHandbook) {
  const std::vector<double> means{1.880, 1.023, 0.729, 0.577, 0.483, 0.419, 0.373, 0.337, 0.308};
  const std::vector<double> upper{3.267, 2.575, 2.282, 2.115, 2.004, 1.924, 1.864, 1.816, 1.777};
  for (int n = 2; n <= 10; ++n) {
    const std::size_t place = static_cast<std::size_t>(n) - 2;
    EXPECT_NEAR(statistics::controlConstants(n)->A2, means[place], 6e-4) << n;
    EXPECT_NEAR(statistics::controlConstants(n)->D4, upper[place], 6e-4) << n;
  }
}

// H. L. Harter, "Tables of range and studentized range", Annals of Mathematical Statistics 31
// (1960): the mean of the range, to five decimals.
TEST(ControlConstants, HaveTheMeanRangeToFiveDecimals) {
  const std::vector<double> means{1.12838, 1.69257, 2.05875, 2.32593, 2.53441,
                                  2.70436, 2.84720, 2.97003, 3.07751};
  for (int n = 2; n <= 10; ++n) {
    EXPECT_NEAR(statistics::controlConstants(n)->d2, means[static_cast<std::size_t>(n) - 2], 6e-6);
  }
}

TEST(ControlConstants, AreAbsentForSizesThatHaveNone) {
  EXPECT_EQ(statistics::controlConstants(1).reason(), "subgroups of fewer than 2 values");
  EXPECT_EQ(statistics::controlConstants(-7).reason(), "subgroups of fewer than 2 values");
  EXPECT_EQ(statistics::controlConstants(1001).reason(), "subgroups of more than 1000 values");
  EXPECT_GT(statistics::controlConstants(1000)->d2, 6);
}

// AIAG, "Measurement Systems Analysis Reference Manual": K3 of 2 to 10 parts, which is 1 / d2*.
TEST(D2Star, IsThatOfTheGaugeStudies) {
  const std::vector<double> factors{0.7071, 0.5231, 0.4467, 0.4030, 0.3742,
                                    0.3534, 0.3375, 0.3249, 0.3146};
  for (int n = 2; n <= 10; ++n) {
    EXPECT_NEAR(1 / *statistics::d2Star(n, 1), factors[static_cast<std::size_t>(n) - 2], 6e-5) << n;
  }
}

TEST(D2Star, NearsTheMeanRangeWithManyRanges) {
  EXPECT_NEAR(*statistics::d2Star(5, 1'000'000), statistics::controlConstants(5)->d2, 1e-6);
  EXPECT_EQ(statistics::d2Star(5, 0).reason(), "no ranges");
  EXPECT_EQ(statistics::d2Star(1, 1).reason(), "subgroups of fewer than 2 values");
}

// D. C. Montgomery, "Introduction to Statistical Quality Control", the viscosity of 15 batches of
// primer paint.
TEST(IndividualsChart, HasThePublishedLimitsOfThePaint) {
  const IndividualsChart chart =
      individualsChart(std::vector<double>{33.75, 33.05, 34.00, 33.81, 33.46, 34.02, 33.68, 33.27,
                                           33.49, 33.20, 33.62, 33.00, 33.54, 33.12, 33.84});
  EXPECT_NEAR(chart.values->centre, 33.52, 5e-3);
  EXPECT_NEAR(chart.values->upper, 34.80, 5e-3);
  EXPECT_NEAR(chart.values->lower, 32.24, 6e-3);
  EXPECT_NEAR(chart.ranges->centre, 0.48, 5e-3);
  EXPECT_NEAR(chart.ranges->upper, 1.57, 5e-3);
  EXPECT_EQ(chart.ranges->lower, 0);
  EXPECT_THAT(chart.signals, IsEmpty());
  EXPECT_THAT(chart.rangesAbove, IsEmpty());
}

// NIST/SEMATECH e-Handbook of Statistical Methods, 6.3.2.2: the flow rate of ten batches. The
// printed limits use d2 = 1.128.
TEST(IndividualsChart, HasThePublishedLimitsOfTheFlowRate) {
  const IndividualsChart chart = individualsChart(
      std::vector<double>{49.6, 47.6, 49.9, 51.3, 47.8, 51.2, 52.6, 52.4, 53.6, 52.1});
  EXPECT_NEAR(chart.values->centre, 50.81, 1e-9);
  EXPECT_NEAR(chart.ranges->centre, 1.8778, 5e-5);
  EXPECT_NEAR(chart.values->upper, 55.8041, 2e-3);
  EXPECT_NEAR(chart.values->lower, 45.8159, 2e-3);
  EXPECT_NEAR(chart.ranges->upper, 3.267 * 1.8778, 2e-3);
}

TEST(IndividualsChart, IsAbsentWithFewerThanTwoValues) {
  for (const std::vector<double>& values : {std::vector<double>{}, {1}, {kNaN, 1, kInfinity}}) {
    const IndividualsChart chart = individualsChart(values);
    EXPECT_EQ(chart.deviation.reason(), "fewer than 2 values");
    EXPECT_EQ(chart.values.reason(), "fewer than 2 values");
    EXPECT_EQ(chart.ranges.reason(), "fewer than 2 values");
    EXPECT_THAT(chart.signals, IsEmpty());
  }
}

TEST(IndividualsChart, OfEqualValuesFindsNothing) {
  const IndividualsChart chart = individualsChart(std::vector<double>(20, 0.1));
  EXPECT_EQ(*chart.deviation, 0);
  EXPECT_EQ(chart.values->upper, 0.1);
  EXPECT_THAT(chart.signals, IsEmpty());
  EXPECT_THAT(chart.rangesAbove, IsEmpty());
}

TEST(IndividualsChart, CountsThePointsThatAreLeftOut) {
  std::vector<double> values;
  for (int i = 0; i < 20; ++i) values.push_back(i % 2 == 0 ? 1 : -1);
  values.insert(values.begin() + 4, {kNaN, kInfinity, kNaN});
  values.push_back(50);
  const IndividualsChart chart = individualsChart(values);
  EXPECT_EQ(chart.n, 21);
  EXPECT_EQ(chart.notNumbers, 2);
  EXPECT_EQ(chart.infinite, 1);
  EXPECT_NEAR(chart.ranges->centre, (19 * 2 + 51) / 20.0, 1e-12);
  ASSERT_THAT(chart.signals, testing::Not(IsEmpty()));
  EXPECT_EQ(chart.signals[0].rule, Rule::BeyondThree);
  EXPECT_EQ(chart.signals[0].at, 23U);
  EXPECT_THAT(chart.rangesAbove, ElementsAre(23));
}

/// What the rules find around 0 with the deviation 1: rule, point, and the points of each.
using Found = std::vector<std::tuple<Rule, std::size_t, std::vector<std::size_t>>>;

Found foundIn(const std::vector<double>& values) {
  Found found;
  for (const Signal& signal : statistics::signals(values, 0, 1)) {
    found.emplace_back(signal.rule, signal.at, signal.points);
  }
  return found;
}

TEST(Signals, OnePointBeyondThreeDeviations) {
  EXPECT_EQ(foundIn({0, 3.1, 0, -3.1, 3}),
            (Found{{Rule::BeyondThree, 1, {1}}, {Rule::BeyondThree, 3, {3}}}));
}

TEST(Signals, TwoOfThreePointsBeyondTwo) {
  EXPECT_EQ(foundIn({0, 2.1, 0, 2.1, 0}), (Found{{Rule::TwoOfThree, 3, {1, 3}}}));
  EXPECT_EQ(foundIn({0, -2.1, -2.1, 0, 0}), (Found{{Rule::TwoOfThree, 2, {1, 2}}}));
  EXPECT_EQ(foundIn({0, 2.1, -2.1, 0, 2, 2}), Found{});
  EXPECT_EQ(foundIn({2.1, 0, 0, 2.1}), Found{});
}

TEST(Signals, FourOfFivePointsBeyondOne) {
  EXPECT_EQ(foundIn({1.1, 1.1, 0, 1.1, 1.1}), (Found{{Rule::FourOfFive, 4, {0, 1, 3, 4}}}));
  EXPECT_EQ(foundIn({-1.1, -1.1, -1.1, -1.1}), (Found{{Rule::FourOfFive, 3, {0, 1, 2, 3}}}));
  EXPECT_EQ(foundIn({1.1, 1.1, 0, -1, 1.1, 1.1}), Found{});
  EXPECT_EQ(foundIn({1.1, 1.1, 1.1, -1.1, -1.1, -1.1}), Found{});
}

TEST(Signals, EightPointsOnOneSide) {
  EXPECT_EQ(foundIn({.1, .2, .1, .2, .1, .2, .1}), Found{});
  EXPECT_EQ(foundIn({-.1, .1, .2, .1, .2, .1, .2, .1, .2}),
            (Found{{Rule::EightOnOneSide, 8, {1, 2, 3, 4, 5, 6, 7, 8}}}));
  EXPECT_EQ(foundIn({.1, .2, .1, .2, 0, .2, .1, .2}), Found{});
}

TEST(Signals, GoOnWhileThePatternDoes) {
  const Found found = foundIn(std::vector<double>(10, -0.5));
  ASSERT_EQ(found.size(), 3U);
  EXPECT_EQ(std::get<1>(found[2]), 9U);
  EXPECT_THAT(std::get<2>(found[2]), ElementsAre(2, 3, 4, 5, 6, 7, 8, 9));
}

TEST(Signals, SkipWhatIsNotFinite) {
  EXPECT_EQ(foundIn({2.1, kNaN, kInfinity, 2.1}), (Found{{Rule::TwoOfThree, 3, {0, 3}}}));
}

TEST(Signals, NeedADeviation) {
  for (const double none : {0.0, -1.0, kNaN}) {
    EXPECT_THAT(statistics::signals(std::vector<double>{1, 100}, 0, none), IsEmpty());
  }
}

TEST(Rule, HasWords) {
  EXPECT_EQ(words(Rule::BeyondThree), "one point beyond three deviations");
  EXPECT_EQ(words(Rule::EightOnOneSide), "eight points in a row on the same side of the centre");
}

}  // namespace
