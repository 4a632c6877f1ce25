#include "statistics/Comparison.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

namespace {

using statistics::Comparison;
using statistics::SortedValues;

Comparison comparisonOf(const std::vector<double>& first, const std::vector<double>& second,
                        double confidence = 0.95) {
  return statistics::compare(SortedValues(first), SortedValues(second), confidence);
}

// Student, "The probable error of a mean", Biometrika 6 (1908): the hours of sleep; the test by
// Welch as the manual of R prints it, where the first group is the minuend.
TEST(Comparison, GivesThePublishedTestOfTheSleepers) {
  const Comparison comparison = comparisonOf({0.7, -1.6, -0.2, -1.2, -0.1, 3.4, 3.7, 0.8, 0.0, 2.0},
                                             {1.9, 0.8, 1.1, 0.1, -0.1, 4.4, 5.5, 1.6, 4.6, 3.4});
  EXPECT_NEAR(*comparison.shift, 2.33 - 0.75, 1e-12);
  EXPECT_NEAR(comparison.means->statistic, 1.8608, 5e-5);
  EXPECT_NEAR(comparison.means->degreesOfFreedom, 17.776, 5e-4);
  EXPECT_NEAR(comparison.means->p, 0.07939, 5e-6);
  EXPECT_NEAR(comparison.shiftInterval->lower, -0.2054832, 5e-8);
  EXPECT_NEAR(comparison.shiftInterval->upper, 3.3654832, 5e-8);
}

// NIST/SEMATECH e-Handbook of Statistical Methods, 7.3.1 "Do two processes have the same mean?":
// the times of an old and a new process.
TEST(Comparison, GivesThePublishedTestOfTheProcesses) {
  const Comparison comparison = comparisonOf({32, 37, 35, 28, 41, 44, 35, 31, 34, 38, 42},
                                             {36, 31, 30, 31, 34, 36, 29, 32, 31});
  EXPECT_NEAR(*comparison.shift, 32.2222 - 36.0909, 1e-4);
  EXPECT_NEAR(comparison.means->statistic, -2.2694, 5e-5);
  EXPECT_NEAR(comparison.means->degreesOfFreedom, 15.533, 5e-4);
  EXPECT_NEAR(*comparison.spreadRatio, 2.5386 / 4.9082, 5e-5);
}

// NIST/SEMATECH e-Handbook of Statistical Methods, 1.3.5.10 "Levene Test for Equality of
// Variances": the diameters of gears in ten batches. It prints 1.705910, of which single precision
// leaves five digits.
TEST(BrownForsythe, GivesThePublishedTestOfTheGears) {
  const std::vector<SortedValues> batches{
      SortedValues(
          std::vector{1.006, 0.996, 0.998, 1.000, 0.992, 0.993, 1.002, 0.999, 0.994, 1.000}),
      SortedValues(
          std::vector{0.998, 1.006, 1.000, 1.002, 0.997, 0.998, 0.996, 1.000, 1.006, 0.988}),
      SortedValues(
          std::vector{0.991, 0.987, 0.997, 0.999, 0.995, 0.994, 1.000, 0.999, 0.996, 0.996}),
      SortedValues(
          std::vector{1.005, 1.002, 0.994, 1.000, 0.995, 0.994, 0.998, 0.996, 1.002, 0.996}),
      SortedValues(
          std::vector{0.998, 0.998, 0.982, 0.990, 1.002, 0.984, 0.996, 0.993, 0.980, 0.996}),
      SortedValues(
          std::vector{1.009, 1.013, 1.009, 0.997, 0.988, 1.002, 0.995, 0.998, 0.981, 0.996}),
      SortedValues(
          std::vector{0.990, 1.004, 0.996, 1.001, 0.998, 1.000, 1.018, 1.010, 0.996, 1.002}),
      SortedValues(
          std::vector{0.998, 1.000, 1.006, 1.000, 1.002, 0.996, 0.998, 0.996, 1.002, 1.006}),
      SortedValues(
          std::vector{1.002, 0.998, 0.996, 0.995, 0.996, 1.004, 1.004, 0.998, 0.999, 0.991}),
      SortedValues(
          std::vector{0.991, 0.995, 0.984, 0.994, 0.997, 0.997, 0.991, 0.998, 1.004, 0.997})};
  const statistics::Significance spreads = *statistics::brownForsythe(batches);
  EXPECT_NEAR(spreads.statistic, 1.705910, 1e-5);
  EXPECT_EQ(spreads.degreesOfFreedom, 9);
  EXPECT_EQ(spreads.denominatorDegrees, 90);
}

// A. J. Dobson, "An Introduction to Statistical Modelling": the weights of plants in three groups;
// the test as R's package car prints it.
TEST(BrownForsythe, GivesThePublishedTestOfThePlants) {
  const std::vector<SortedValues> groups{
      SortedValues(std::vector{4.17, 5.58, 5.18, 6.11, 4.50, 4.61, 5.17, 4.53, 5.33, 5.14}),
      SortedValues(std::vector{4.81, 4.17, 4.41, 3.59, 5.87, 3.83, 6.03, 4.89, 4.32, 4.69}),
      SortedValues(std::vector{6.31, 5.12, 5.54, 5.50, 5.37, 5.29, 4.92, 6.15, 5.80, 5.26})};
  const statistics::Significance spreads = *statistics::brownForsythe(groups);
  EXPECT_NEAR(spreads.statistic, 1.1192, 5e-5);
  EXPECT_NEAR(spreads.p, 0.3412, 5e-5);
  EXPECT_EQ(spreads.denominatorDegrees, 27);
}

TEST(BrownForsythe, IsAbsentWithoutEnough) {
  EXPECT_EQ(statistics::brownForsythe({}).reason(), "fewer than 2 sets");
  const std::vector<SortedValues> small{SortedValues(std::vector{1.0, 2.0}),
                                        SortedValues(std::vector{1.0})};
  EXPECT_EQ(statistics::brownForsythe(small).reason(), "fewer than 2 values");
}

TEST(Comparison, IsAbsentWithTooFewValues) {
  const Comparison none = comparisonOf({}, {1, 2});
  EXPECT_EQ(none.shift.reason(), "no values on one side");
  EXPECT_EQ(none.shiftInterval.reason(), "no values");
  EXPECT_EQ(none.means.reason(), "no values");
  EXPECT_EQ(none.spreadRatio.reason(), "no values");
  EXPECT_EQ(none.spreads.reason(), "fewer than 2 values");
  EXPECT_EQ(none.ranks.reason(), "fewer than 8 values on a side");
  const Comparison one = comparisonOf({1, 2}, {5});
  EXPECT_EQ(*one.shift, 3.5);
  EXPECT_EQ(one.means.reason(), "fewer than 2 values");
}

TEST(Comparison, OfValuesWithoutSpreadHasAShiftOnly) {
  const Comparison comparison =
      comparisonOf(std::vector<double>(10, 1), std::vector<double>(10, 1.5));
  EXPECT_EQ(*comparison.shift, 0.5);
  EXPECT_EQ(comparison.means.reason(), "neither side has a spread");
  EXPECT_EQ(comparison.shiftInterval.reason(), "neither side has a spread");
  EXPECT_EQ(comparison.spreadRatio.reason(), "the first side has no spread");
  EXPECT_EQ(comparison.spreads.reason(), "the distances to the medians do not vary");
  EXPECT_LT(comparison.ranks->p, 1e-4);
  EXPECT_EQ(comparisonOf(std::vector<double>(10, 1), std::vector<double>(10, 1)).ranks.reason(),
            "all values are equal");
}

TEST(Comparison, OfTheSameValuesFindsNothing) {
  const std::vector<double> values{1, 2, 3, 4, 5, 6, 7, 8, 9};
  const Comparison comparison = comparisonOf(values, values);
  EXPECT_EQ(*comparison.shift, 0);
  EXPECT_EQ(comparison.means->p, 1);
  EXPECT_EQ(comparison.spreads->p, 1);
  EXPECT_EQ(comparison.ranks->p, 1);
  EXPECT_EQ(*comparison.spreadRatio, 1);
}

TEST(Comparison, HasNoIntervalOfAConfidenceThatIsNone) {
  EXPECT_EQ(comparisonOf({1, 2}, {3, 5}, 0).shiftInterval.reason(),
            "the confidence is not between 0 and 1");
}

TEST(Comparison, IsAbsentBeyondTheRangeOfNumbers) {
  const double large = std::numeric_limits<double>::max();
  const Comparison comparison = comparisonOf({-large, -large, large}, {1, 2, 3});
  EXPECT_FALSE(comparison.means);
  EXPECT_FALSE(comparison.shiftInterval);
  EXPECT_FALSE(comparison.spreads);
}

}  // namespace
