#include "statistics/Summary.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

namespace {

using statistics::SortedValues;
using statistics::Summary;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kLargest = std::numeric_limits<double>::max();

Summary summaryOf(const std::vector<double>& values) {
  return statistics::summarize(SortedValues(values));
}

/// `first`, and then `low` and `high` in turn, 500 times each.
std::vector<double> inTurn(double first, double low, double high) {
  std::vector<double> values{first};
  for (int i = 0; i < 500; ++i) {
    values.push_back(low);
    values.push_back(high);
  }
  return values;
}

// NIST, Statistical Reference Datasets, univariate summary statistics: the certified values of
// NumAcc1 to NumAcc4.
TEST(Summary, GivesTheCertifiedValuesOfTheAccuracyDataSets) {
  const Summary one = summaryOf({10000001, 10000003, 10000002});
  EXPECT_DOUBLE_EQ(*one.mean, 10000002);
  EXPECT_DOUBLE_EQ(*one.standardDeviation, 1);
  const Summary two = summaryOf(inTurn(1.2, 1.1, 1.3));
  EXPECT_DOUBLE_EQ(*two.mean, 1.2);
  EXPECT_NEAR(*two.standardDeviation, 0.1, 1e-15);
  // The last ones are as near as the values themselves, which are no binary fractions.
  const Summary three = summaryOf(inTurn(1000000.2, 1000000.1, 1000000.3));
  EXPECT_DOUBLE_EQ(*three.mean, 1000000.2);
  EXPECT_NEAR(*three.standardDeviation, 0.1, 2e-10);
  const Summary four = summaryOf(inTurn(10000000.2, 10000000.1, 10000000.3));
  EXPECT_DOUBLE_EQ(*four.mean, 10000000.2);
  EXPECT_NEAR(*four.standardDeviation, 0.1, 2e-9);
}

// NIST/SEMATECH e-Handbook of Statistical Methods, 7.2.6.2 "Percentiles": the twelve gauge
// measurements. Type 7 puts the 90th percentile at 0.9 of the way from the 10th to the 11th.
TEST(Percentile, InterpolatesBetweenTheNearestRanks) {
  const SortedValues sorted(std::vector<double>{95.1772, 95.1567, 95.1937, 95.1959, 95.1442,
                                                95.0610, 95.1591, 95.1195, 95.1065, 95.0925,
                                                95.1990, 95.1682});
  EXPECT_NEAR(*statistics::percentile(sorted, 90), 95.19568, 1e-9);
  EXPECT_NEAR(*statistics::percentile(sorted, 50), (95.1567 + 95.1591) / 2, 1e-9);
  EXPECT_EQ(*statistics::percentile(sorted, 0), 95.0610);
  EXPECT_EQ(*statistics::percentile(sorted, 100), 95.1990);
}

TEST(Percentile, IsAbsentForPercentagesThatAreNone) {
  const SortedValues sorted(std::vector<double>{1, 2});
  for (const double percent : {-1.0, 100.5, kNaN}) {
    EXPECT_EQ(statistics::percentile(sorted, percent).reason(),
              "the percentage is not between 0 and 100");
  }
}

TEST(Summary, IsAbsentWithoutValues) {
  const Summary summary = summaryOf({});
  EXPECT_EQ(summary.n, 0);
  EXPECT_FALSE(summary.allEqual);
  for (const statistics::Figure& figure : {summary.mean, summary.standardDeviation, summary.minimum,
                                           summary.maximum, summary.median}) {
    EXPECT_FALSE(figure);
    EXPECT_EQ(figure.reason(), "no values");
  }
}

TEST(Summary, OfOneValueHasNoDeviation) {
  const Summary summary = summaryOf({7.5});
  EXPECT_EQ(*summary.mean, 7.5);
  EXPECT_EQ(*summary.median, 7.5);
  EXPECT_EQ(*summary.minimum, 7.5);
  EXPECT_EQ(*summary.maximum, 7.5);
  EXPECT_EQ(summary.standardDeviation.reason(), "fewer than 2 values");
}

TEST(Summary, LeavesOutAndCountsWhatIsNotFinite) {
  const Summary summary = summaryOf({kNaN, 1, kInfinity, 3, -kInfinity, kNaN, kNaN});
  EXPECT_EQ(summary.n, 2);
  EXPECT_EQ(summary.notNumbers, 3);
  EXPECT_EQ(summary.infinite, 2);
  EXPECT_EQ(*summary.mean, 2);
  EXPECT_EQ(*summary.minimum, 1);
  EXPECT_EQ(*summary.maximum, 3);
}

TEST(Summary, OfEqualValuesHasNoSpread) {
  const Summary summary = summaryOf(std::vector<double>(1000, 0.1));
  EXPECT_TRUE(summary.allEqual);
  EXPECT_EQ(*summary.mean, 0.1);
  EXPECT_EQ(*summary.standardDeviation, 0);
}

TEST(Summary, KeepsASmallSpreadFarFromZero) {
  std::vector<double> values;
  for (int i = 0; i < 1000; ++i) values.push_back(1e12 + (i % 2 == 0 ? 0.25 : -0.25));
  const Summary summary = summaryOf(values);
  EXPECT_EQ(*summary.mean, 1e12);
  EXPECT_NEAR(*summary.standardDeviation, 0.25 * std::sqrt(1000 / 999.0), 1e-12);
}

// The mean of these lies between two neighbours among the numbers.
TEST(Summary, KnowsTheSpreadWhereTheMeanIsNoNumber) {
  const Summary summary = summaryOf({1e15, 1e15 + 0.125});
  EXPECT_DOUBLE_EQ(*summary.standardDeviation, 0.125 / std::sqrt(2.0));
  EXPECT_EQ(*summary.mean - 1e15 + summary.meanRest, 0.0625);
}

TEST(Summary, HoldsAtBothEndsOfTheNumbers) {
  const Summary small = summaryOf({1e-300, 2e-300, 3e-300});
  EXPECT_DOUBLE_EQ(*small.mean, 2e-300);
  EXPECT_DOUBLE_EQ(*small.standardDeviation, 1e-300);
  const Summary large = summaryOf({1e307, 2e307, 3e307});
  EXPECT_DOUBLE_EQ(*large.mean, 2e307);
  EXPECT_DOUBLE_EQ(*large.standardDeviation, 1e307);
  const Summary beyond = summaryOf({-kLargest, kLargest, kLargest});
  EXPECT_EQ(*beyond.minimum, -kLargest);
  EXPECT_FALSE(beyond.standardDeviation);
  EXPECT_EQ(beyond.standardDeviation.reason(), "beyond the range of numbers");
}

}  // namespace
