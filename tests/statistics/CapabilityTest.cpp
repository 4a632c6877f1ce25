#include "statistics/Capability.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

namespace {

using statistics::Capability;
using statistics::Computed;
using statistics::Figure;
using statistics::Index;
using statistics::Indices;
using statistics::Limits;
using statistics::Normality;
using statistics::SortedValues;
using statistics::Spread;
using statistics::Summary;
using statistics::Warning;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

/// A process as books give it.
Summary process(std::int64_t n, double mean, double deviation) {
  Summary summary;
  summary.n = n;
  summary.mean = mean;
  summary.standardDeviation = deviation;
  return summary;
}

Computed<Normality> normal() { return Normality{.statistic = 0.2, .adjusted = 0.2, .p = 0.9}; }

Capability capabilityOf(const Summary& summary, const Limits& limits) {
  const Computed<Spread> within =
      Spread{*summary.standardDeviation, static_cast<double>(summary.n - 1)};
  return statistics::capability(summary, within, normal(), limits);
}

// NIST/SEMATECH e-Handbook of Statistical Methods, 6.1.6 "What is Process Capability?": limits of 8
// and 20, mean 16, deviation 2.
TEST(Capability, HasTheIndicesOfTheHandbook) {
  const Indices indices = capabilityOf(process(50, 16, 2), {8, 20}).overall;
  EXPECT_NEAR(*indices.both.value, 1.0, 1e-12);
  EXPECT_NEAR(*indices.nearest.value, 0.6667, 5e-5);
  EXPECT_NEAR(*indices.upper.value, 0.6667, 5e-5);
  EXPECT_NEAR(*indices.lower.value, 1.3333, 5e-5);
}

// D. C. Montgomery, "Introduction to Statistical Quality Control", process capability ratios:
// limits of 38 and 62, centred, deviation 1.75 of 20 values.
TEST(Capability, HasThePublishedIntervalOfBoth) {
  const Index both = capabilityOf(process(20, 50, 1.75), {38, 62}).within.both;
  EXPECT_NEAR(*both.value, 2.29, 5e-3);
  EXPECT_NEAR(both.interval->lower, 1.57, 6e-3);
  EXPECT_NEAR(both.interval->upper, 3.01, 6e-3);
}

// The same chapter: an index of 1.33 of 20 values lies between 0.88 and 1.78.
TEST(Capability, HasThePublishedIntervalOfTheNearest) {
  const Index nearest = capabilityOf(process(20, 3 * 1.33, 1), {0, 100}).within.nearest;
  EXPECT_NEAR(*nearest.value, 1.33, 1e-9);
  EXPECT_NEAR(nearest.interval->lower, 0.88, 5e-3);
  EXPECT_NEAR(nearest.interval->upper, 1.78, 5e-3);
}

// The same chapter: bottles burst at 264 with a deviation of 32; the lower limit is 200.
TEST(Capability, KnowsALowerLimitAlone) {
  const Indices indices = capabilityOf(process(100, 264, 32), {200, std::nullopt}).overall;
  EXPECT_NEAR(*indices.lower.value, 0.67, 5e-3);
  EXPECT_EQ(*indices.nearest.value, *indices.lower.value);
  EXPECT_EQ(indices.both.value.reason(), "only one limit");
  EXPECT_EQ(indices.both.interval.reason(), "only one limit");
  EXPECT_EQ(indices.upper.value.reason(), "no upper limit");
  EXPECT_NEAR(*indices.ppm.below, 22750, 1);
  EXPECT_EQ(*indices.ppm.outside, *indices.ppm.below);
  EXPECT_EQ(indices.ppm.above.reason(), "no upper limit");
}

TEST(Capability, KnowsAnUpperLimitAlone) {
  const Indices indices = capabilityOf(process(100, 1, 1), {std::nullopt, 4}).overall;
  EXPECT_NEAR(*indices.nearest.value, 1, 1e-12);
  EXPECT_EQ(indices.lower.value.reason(), "no lower limit");
  EXPECT_EQ(*indices.ppm.outside, *indices.ppm.above);
}

// The same chapter, the table of the fallout of a process by its ratio: parts in a million outside,
// of one limit and of two.
TEST(Capability, ExpectsThePublishedPpm) {
  struct Row {
    double index, one, two;
  };
  for (const Row& row : {Row{0.25, 226628, 453255}, Row{0.5, 66807, 133614},
                         Row{0.75, 12225, 24449}, Row{1, 1350, 2700}}) {
    const double limit = 3 * row.index;
    const Indices indices = capabilityOf(process(100, 0, 1), {-limit, limit}).overall;
    EXPECT_NEAR(*indices.ppm.above, row.one, 1) << row.index;
    EXPECT_NEAR(*indices.ppm.below, row.one, 1) << row.index;
    EXPECT_NEAR(*indices.ppm.outside, row.two, 1) << row.index;
  }
}

TEST(Capability, IsNegativeWhenTheMeanIsOutside) {
  const Indices indices = capabilityOf(process(100, 7, 1), {-1, 1}).overall;
  EXPECT_NEAR(*indices.nearest.value, -2, 1e-12);
  EXPECT_LT(indices.nearest.interval->lower, -2);
  EXPECT_GT(*indices.ppm.outside, 999'999);
}

void expectNoFigure(const Indices& indices, const std::string& reason) {
  for (const Index* index : {&indices.both, &indices.lower, &indices.upper, &indices.nearest}) {
    EXPECT_EQ(index->value.reason(), reason);
    EXPECT_EQ(index->interval.reason(), reason);
  }
  for (const Figure* ppm : {&indices.ppm.below, &indices.ppm.above, &indices.ppm.outside}) {
    EXPECT_EQ(ppm->reason(), reason);
  }
}

TEST(Capability, SaysWhatLimitsLack) {
  const Indices none = capabilityOf(process(100, 0, 1), {}).overall;
  EXPECT_EQ(none.both.value.reason(), "no limits");
  EXPECT_EQ(none.nearest.value.reason(), "no limits");
  EXPECT_EQ(none.ppm.outside.reason(), "no limits");
  EXPECT_EQ(none.lower.value.reason(), "no lower limit");
  const Indices notFinite =
      capabilityOf(process(100, 0, 1), {kNaN, std::numeric_limits<double>::infinity()}).overall;
  EXPECT_EQ(notFinite.nearest.value.reason(), "no limits");
  for (const Limits& limits : {Limits{1, 1}, Limits{2, 1}}) {
    const Indices indices = capabilityOf(process(100, 0, 1), limits).overall;
    EXPECT_EQ(indices.both.value.reason(), "the lower limit is not below the upper one");
    EXPECT_EQ(indices.nearest.value.reason(), "the lower limit is not below the upper one");
    EXPECT_EQ(indices.ppm.outside.reason(), "the lower limit is not below the upper one");
  }
}

TEST(Capability, IsAbsentWithoutASpread) {
  const auto of = [](const std::vector<double>& values) {
    const SortedValues sorted(values);
    const Summary summary = statistics::summarize(sorted);
    return statistics::capability(summary, statistics::movingRangeSpread(values),
                                  statistics::andersonDarling(sorted, summary), {0, 10});
  };
  const Capability none = of({});
  expectNoFigure(none.overall, "no values");
  expectNoFigure(none.within, "no values");
  const Capability one = of({5});
  expectNoFigure(one.overall, "fewer than 2 values");
  expectNoFigure(one.within, "fewer than 2 values");
  const Capability equal = of(std::vector<double>(40, 5));
  expectNoFigure(equal.overall, "all values are equal");
  expectNoFigure(equal.within, "all values are equal");
  EXPECT_THAT(equal.warnings, ElementsAre(Warning::AllEqual));
  const Capability two = of({4, 6});
  EXPECT_TRUE(two.overall.both.value);
  EXPECT_TRUE(two.overall.nearest.interval);
  EXPECT_THAT(two.warnings, ElementsAre(Warning::FewValues));
}

TEST(Capability, IsAbsentWithinSubgroupsThatDoNotVary) {
  const std::vector<double> values{1, 1, 2, 2, 3, 3};
  const std::vector<std::int64_t> subgroups{1, 1, 2, 2, 3, 3};
  const Capability capability =
      statistics::capability(statistics::summarize(SortedValues(values)),
                             statistics::pooledSpread(values, subgroups), normal(), {0, 4});
  expectNoFigure(capability.within, "the deviation is 0");
  EXPECT_TRUE(capability.overall.both.value);
}

TEST(Capability, HasNoIntervalOfAConfidenceThatIsNone) {
  const Summary summary = process(100, 0, 1);
  const Capability capability =
      statistics::capability(summary, Spread{1, 99}, normal(), {-1, 1}, 1);
  EXPECT_TRUE(capability.overall.both.value);
  EXPECT_EQ(capability.overall.both.interval.reason(), "the confidence is not between 0 and 1");
  EXPECT_EQ(capability.overall.nearest.interval.reason(), "the confidence is not between 0 and 1");
}

TEST(Capability, WarnsOfWhatMakesItDoubtful) {
  const auto warnings = [](const Summary& summary, const Computed<Normality>& normality) {
    return statistics::capability(summary, Spread{1, 20}, normality, {-1, 1}).warnings;
  };
  EXPECT_THAT(warnings(process(30, 0, 1), normal()), IsEmpty());
  EXPECT_THAT(warnings(process(29, 0, 1), normal()), ElementsAre(Warning::FewValues));
  EXPECT_THAT(warnings(process(30, 0, 1), Normality{2, 2, 0.049}), ElementsAre(Warning::NotNormal));
  EXPECT_THAT(warnings(process(30, 0, 1), Normality{2, 2, 0.05}), IsEmpty());
  Summary leftOut = process(30, 0, 1);
  leftOut.infinite = 1;
  EXPECT_THAT(warnings(leftOut, Computed<Normality>::absent("fewer than 8 values")),
              ElementsAre(Warning::LeftOut));
}

TEST(Warning, HasWords) {
  EXPECT_EQ(words(Warning::FewValues), "fewer than 30 values");
  EXPECT_EQ(words(Warning::AllEqual), "all values are equal");
  EXPECT_EQ(words(Warning::NotNormal), "not normally distributed");
  EXPECT_EQ(words(Warning::LeftOut), "some values are not finite and left out");
}

TEST(Outside, CountsWhatMissesALimit) {
  const SortedValues sorted(std::vector<double>{1, 2, 2, 3, 4, 5, kNaN});
  const statistics::Outside both = statistics::outside(sorted, {2, 4});
  EXPECT_EQ(both.below, 1);
  EXPECT_EQ(both.above, 1);
  const statistics::Outside none = statistics::outside(sorted, {});
  EXPECT_EQ(none.below, 0);
  EXPECT_EQ(none.above, 0);
  EXPECT_EQ(statistics::outside(sorted, {std::nullopt, 1.5}).above, 5);
  EXPECT_EQ(statistics::outside(sorted, {kNaN, std::nullopt}).below, 0);
}

}  // namespace
