#include "statistics/Spread.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "statistics/Histogram.h"
#include "statistics/Normality.h"

namespace {

using statistics::BinRule;
using statistics::Histogram;
using statistics::SortedValues;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kLargest = std::numeric_limits<double>::max();

TEST(MovingRangeSpread, LeavesOutWhatIsNotFinite) {
  const auto spread =
      statistics::movingRangeSpread(std::vector<double>{1, kNaN, 2, kInfinity, 4, -kInfinity});
  EXPECT_NEAR(spread->deviation, 1.5 / 1.128379167, 1e-9);
}

TEST(MovingRangeSpread, NeedsTwoValues) {
  for (const std::vector<double>& values : {std::vector<double>{}, {1}, {kNaN, 1}}) {
    EXPECT_EQ(statistics::movingRangeSpread(values).reason(), "fewer than 2 values");
  }
  EXPECT_EQ(statistics::movingRangeSpread(std::vector<double>{-kLargest, kLargest}).reason(),
            "beyond the range of numbers");
}

// Two values have one distance, whose square, with one degree of freedom, is chi-square: nearly
// what the approximation says.
TEST(MovingRangeSpread, KnowsHowMuchItKnows) {
  const auto two = statistics::movingRangeSpread(std::vector<double>{1, 2});
  EXPECT_NEAR(two->degreesOfFreedom, 0.876, 5e-4);  // as the tables of d2* have it for one range
  // The variance of the estimate, found by trying: that of a mean is 2 / degrees at this size.
  std::mt19937_64 random(1);
  std::normal_distribution<double> normal;
  double sum = 0;
  double squares = 0;
  constexpr int kTimes = 4000;
  double degrees = 0;
  for (int i = 0; i < kTimes; ++i) {
    std::vector<double> values(50);
    for (double& value : values) value = normal(random);
    const auto spread = statistics::movingRangeSpread(values);
    degrees = spread->degreesOfFreedom;
    sum += spread->deviation;
    squares += spread->deviation * spread->deviation;
  }
  const double mean = sum / kTimes;
  const double variance = squares / kTimes - mean * mean;
  EXPECT_NEAR(mean, 1, 0.01);
  EXPECT_NEAR(1 / (2 * variance), degrees, 0.06 * degrees);
}

TEST(PooledSpread, IsTheDeviationWithinSubgroups) {
  const std::vector<double> values{1, 11, 3, 13, 5, 15, kNaN, 100};
  const std::vector<std::int64_t> subgroups{1, 2, 1, 2, 1, 2, 1, 3};
  const auto spread = statistics::pooledSpread(values, subgroups);
  EXPECT_NEAR(spread->deviation, 2, 1e-12);
  EXPECT_EQ(spread->degreesOfFreedom, 4);
}

TEST(PooledSpread, KeepsASmallSpreadFarFromZero) {
  std::vector<double> values;
  std::vector<std::int64_t> subgroups;
  for (int i = 0; i < 1000; ++i) {
    values.push_back(1e12 + 1000 * (i / 100) + (i % 2 == 0 ? 0.25 : -0.25));
    subgroups.push_back(i / 100);
  }
  EXPECT_NEAR(statistics::pooledSpread(values, subgroups)->deviation, 0.25 * std::sqrt(100 / 99.0),
              1e-12);
}

TEST(PooledSpread, NeedsSubgroups) {
  const std::vector<double> values{1, 2};
  EXPECT_EQ(statistics::pooledSpread(values, std::vector<std::int64_t>{1}).reason(),
            "not every value belongs to a subgroup");
  EXPECT_EQ(statistics::pooledSpread(values, std::vector<std::int64_t>{1, 2}).reason(),
            "no subgroup has 2 values");
  EXPECT_EQ(statistics::pooledSpread({}, {}).reason(), "no subgroup has 2 values");
}

TEST(Histogram, FollowsFreedmanAndDiaconis) {
  // 1 to 1000: quartiles 499.5 apart, so bins of 99.9, and ten of them.
  std::vector<double> values;
  for (int i = 1; i <= 1000; ++i) values.push_back(i);
  const Histogram histogram = *statistics::histogram(SortedValues(values));
  EXPECT_EQ(histogram.rule, BinRule::FreedmanDiaconis);
  EXPECT_EQ(histogram.lower, 1);
  EXPECT_NEAR(histogram.width, 99.9, 1e-9);
  EXPECT_EQ(histogram.counts, std::vector<std::int64_t>(10, 100));
}

TEST(Histogram, FollowsSturges) {
  // 1 + log2(1000), rounded up: 11.
  std::vector<double> values;
  for (int i = 1; i <= 1000; ++i) values.push_back(i);
  EXPECT_EQ(statistics::histogram(SortedValues(values), BinRule::Sturges)->counts.size(), 11U);
  values.resize(64);
  EXPECT_EQ(statistics::histogram(SortedValues(values), BinRule::Sturges)->counts.size(), 7U);
}

TEST(Histogram, TakesSturgesWhereTheQuartilesAreTheSame) {
  std::vector<double> values(20, 5.0);
  values.push_back(9);
  const Histogram histogram = *statistics::histogram(SortedValues(values));
  EXPECT_EQ(histogram.rule, BinRule::Sturges);
  EXPECT_EQ(histogram.counts, (std::vector<std::int64_t>{20, 0, 0, 0, 0, 1}));
}

TEST(Histogram, PutsAnEdgeIntoTheBinAbove) {
  const Histogram histogram = *statistics::histogram(
      SortedValues(std::vector<double>{0, 1, 1, 2, 2, 2, 3, 4}), BinRule::Sturges);
  EXPECT_EQ(histogram.width, 1);
  EXPECT_EQ(histogram.counts, (std::vector<std::int64_t>{1, 2, 3, 2}));
}

TEST(Histogram, IsBounded) {
  std::vector<double> values(1000, 0.0);
  for (int i = 0; i < 1000; ++i) values[static_cast<std::size_t>(i)] = i * 1e-6;
  values.push_back(1e6);
  const Histogram histogram = *statistics::histogram(SortedValues(values));
  EXPECT_EQ(histogram.counts.size(), 60U);
  EXPECT_EQ(histogram.counts.front(), 1000);
  EXPECT_EQ(histogram.counts.back(), 1);
  EXPECT_EQ(statistics::histogram(SortedValues(values), BinRule::Sturges, 0)->counts,
            std::vector<std::int64_t>{1001});
}

TEST(Histogram, OfEqualValuesHasOneBin) {
  const Histogram histogram = *statistics::histogram(SortedValues(std::vector<double>(7, 3.5)));
  EXPECT_EQ(histogram.lower, 3.5);
  EXPECT_EQ(histogram.width, 0);
  EXPECT_EQ(histogram.counts, std::vector<std::int64_t>{7});
}

TEST(Histogram, IsAbsentWithoutValues) {
  EXPECT_EQ(statistics::histogram(SortedValues({})).reason(), "no values");
  EXPECT_EQ(statistics::histogram(SortedValues(std::vector{-kLargest, kLargest})).reason(),
            "beyond the range of numbers");
}

statistics::Computed<statistics::Normality> normalityOf(const std::vector<double>& values) {
  const SortedValues sorted(values);
  return statistics::andersonDarling(sorted, statistics::summarize(sorted));
}

TEST(Normality, NeedsEightValuesThatDiffer) {
  EXPECT_EQ(normalityOf({1, 2, 3, 4, 5, 6, 7}).reason(), "fewer than 8 values");
  EXPECT_TRUE(normalityOf({1, 2, 3, 4, 5, 6, 7, 8}));
  EXPECT_EQ(normalityOf(std::vector<double>(20, 1.5)).reason(), "all values are equal");
}

// Twenty weights of chicks; the figures are computed in Python too.
TEST(Normality, SaysNothingAgainstTheChicks) {
  const auto normality = normalityOf({156, 162, 168, 182, 186, 190, 190, 196, 202, 210,
                                      214, 220, 226, 230, 230, 236, 236, 242, 246, 270});
  EXPECT_NEAR(normality->statistic, 0.2141742582, 1e-9);
  EXPECT_NEAR(normality->p, 0.8259764, 1e-6);
}

TEST(Normality, SpeaksAgainstWhatIsFarFromNormal) {
  std::vector<double> values(5000, 0.0);
  for (int i = 0; i < 5000; ++i) values[static_cast<std::size_t>(i)] = i % 7;
  values.push_back(1e9);  // so far out that its probability is no number any more
  const auto normality = normalityOf(values);
  ASSERT_TRUE(normality);
  EXPECT_GT(normality->statistic, 1000);
  EXPECT_GT(normality->p, 0);
  EXPECT_LT(normality->p, 1e-23);
}

}  // namespace
