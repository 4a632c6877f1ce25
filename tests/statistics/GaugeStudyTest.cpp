#include "statistics/GaugeStudy.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "PublishedStudies.h"

namespace {

using statistics::AnovaRow;
using statistics::Computed;
using statistics::GaugeMethod;
using statistics::gaugeStudy;
using statistics::GaugeStudy;
using statistics::Reading;
using test::readingsOf;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

GaugeStudy studyOf(const std::vector<Reading>& readings,
                   const statistics::GaugeOptions& options = {}) {
  const Computed<GaugeStudy> study = gaugeStudy(readings, options);
  EXPECT_EQ(study.reason(), "");
  return study ? *study : GaugeStudy();
}

void expectRow(const AnovaRow& row, const std::string& source, std::int64_t degrees, double squares,
               double meanSquare, double within) {
  EXPECT_EQ(row.source, source);
  EXPECT_EQ(row.degreesOfFreedom, degrees) << source;
  EXPECT_NEAR(row.sumOfSquares, squares, within) << source;
  EXPECT_NEAR(*row.meanSquare, meanSquare, within) << source;
}

// AIAG, "Measurement Systems Analysis Reference Manual": the tables of the analysis of variance of
// that data sheet, printed with up to six decimals.
TEST(GaugeStudy, GivesThePublishedAnalysisOfVariance) {
  const GaugeStudy study = studyOf(test::aiagStudy());
  ASSERT_EQ(study.anova.size(), 5U);
  expectRow(study.anova[0], "part", 9, 88.3619, 9.81799, 5e-5);
  expectRow(study.anova[1], "appraiser", 2, 3.1673, 1.58363, 5e-5);
  expectRow(study.anova[2], "part x appraiser", 18, 0.3590, 0.01994, 5e-5);
  expectRow(study.anova[3], "repeatability", 60, 2.7589, 0.04598, 5e-5);
  EXPECT_EQ(study.anova[4].source, "total");
  EXPECT_EQ(study.anova[4].degreesOfFreedom, 89);
  EXPECT_NEAR(study.anova[4].sumOfSquares, 94.6471, 5e-5);
  EXPECT_NEAR(*study.anova[0].f, 492.291, 5e-4);
  EXPECT_NEAR(*study.anova[1].f, 79.406, 5e-4);
  EXPECT_NEAR(*study.anova[2].f, 0.434, 5e-4);
  EXPECT_NEAR(*study.anova[2].p, 0.974, 5e-4);
}

TEST(GaugeStudy, GivesThePublishedComponentsWhenPooled) {
  const GaugeStudy study = studyOf(test::aiagStudy());
  EXPECT_TRUE(study.pooled);
  EXPECT_THAT(
      study.notes,
      ElementsAre("The interaction of part and appraiser (p = 0.974, above 0.250) counts as "
                  "repeatability."));
  EXPECT_NEAR(study.repeatability.deviation, 0.199933, 5e-7);
  EXPECT_NEAR(study.appraiser.deviation, 0.226838, 5e-7);
  EXPECT_EQ(study.interaction.variance, 0);
  EXPECT_NEAR(study.gauge.deviation, 0.302373, 2e-6);  // printed from rounded components
  EXPECT_NEAR(study.partToPart.deviation, 1.042327, 5e-7);
  EXPECT_NEAR(study.total.deviation, 1.08530, 5e-6);
  EXPECT_NEAR(*study.gauge.contribution, 7.76, 0.005);
  EXPECT_NEAR(*study.repeatability.contribution, 3.39, 0.005);
  EXPECT_NEAR(*study.reproducibility.contribution, 4.37, 0.005);
  EXPECT_NEAR(*study.partToPart.contribution, 92.24, 0.005);
  EXPECT_NEAR(*study.gauge.percentStudy, 27.86, 0.005);
  EXPECT_NEAR(*study.repeatability.percentStudy, 18.42, 0.005);
  EXPECT_NEAR(*study.reproducibility.percentStudy, 20.90, 0.005);
  EXPECT_NEAR(*study.partToPart.percentStudy, 96.04, 0.005);
  EXPECT_EQ(*study.distinctCategories, 4);
}

TEST(GaugeStudy, TestsAgainstThePooledRepeatability) {
  const GaugeStudy study = studyOf(test::aiagStudy());
  ASSERT_EQ(study.pooledAnova.size(), 4U);
  expectRow(study.pooledAnova[2], "repeatability", 78, 0.3590 + 2.7589, 0.0399733, 1e-4);
  EXPECT_NEAR(*study.pooledAnova[0].f, 245.614, 5e-4);
  EXPECT_NEAR(*study.pooledAnova[1].f, 39.617, 5e-4);
}

// D. C. Montgomery, "Introduction to Statistical Quality Control": the thermal impedance study,
// whose interaction is significant.
TEST(GaugeStudy, GivesThePublishedAnalysisWithInteraction) {
  const GaugeStudy study = studyOf(test::impedanceStudy());
  EXPECT_FALSE(study.pooled);
  EXPECT_THAT(study.pooledAnova, IsEmpty());
  expectRow(study.anova[0], "part", 9, 3935.96, 437.328, 5e-3);
  expectRow(study.anova[1], "appraiser", 2, 39.27, 19.633, 5e-3);
  expectRow(study.anova[2], "part x appraiser", 18, 48.51, 2.695, 5e-3);
  expectRow(study.anova[3], "repeatability", 60, 30.67, 0.511, 5e-3);
  EXPECT_NEAR(study.anova[4].sumOfSquares, 4054.40, 5e-3);
  EXPECT_NEAR(*study.anova[0].f, 162.27, 5e-3);
  EXPECT_NEAR(*study.anova[1].f, 7.28, 5e-3);
  EXPECT_NEAR(*study.anova[2].f, 5.27, 5e-3);
  EXPECT_NEAR(*study.anova[1].p, 0.005, 5e-4);
  EXPECT_NEAR(study.partToPart.variance, 48.29, 5e-3);
  EXPECT_NEAR(study.appraiser.variance, 0.56, 5e-3);
  EXPECT_NEAR(study.interaction.variance, 0.73, 5e-3);
  EXPECT_NEAR(study.repeatability.variance, 0.51, 5e-3);
  EXPECT_NEAR(study.reproducibility.variance, 0.56 + 0.73, 1e-2);
}

// D. C. Montgomery, "Design and Analysis of Experiments": first with the interaction, whose
// variance comes out at -0.14, then without.
TEST(GaugeStudy, GivesThePublishedAnalysisWithoutAnInteraction) {
  statistics::GaugeOptions options;
  options.poolAbove = 1;
  const GaugeStudy full = studyOf(test::capabilityStudy(), options);
  EXPECT_FALSE(full.pooled);
  expectRow(full.anova[0], "part", 19, 1185.425, 62.391, 5e-4);
  expectRow(full.anova[1], "appraiser", 2, 2.617, 1.308, 5e-4);
  expectRow(full.anova[2], "part x appraiser", 38, 27.050, 0.712, 5e-4);
  expectRow(full.anova[3], "repeatability", 60, 59.500, 0.992, 5e-4);
  EXPECT_NEAR(full.anova[4].sumOfSquares, 1274.592, 5e-4);
  EXPECT_NEAR(*full.anova[2].p, 0.861, 5e-4);
  EXPECT_EQ(full.interaction.variance, 0);
  EXPECT_THAT(full.notes,
              ElementsAre("The variance of the interaction came out below 0 and is taken as 0."));
  EXPECT_NEAR(full.partToPart.variance, 10.28, 5e-3);

  const GaugeStudy reduced = studyOf(test::capabilityStudy());
  EXPECT_TRUE(reduced.pooled);
  EXPECT_NEAR(reduced.repeatability.variance, 0.88, 5e-3);
  EXPECT_NEAR(reduced.appraiser.variance, 0.0106, 5e-5);
  EXPECT_NEAR(reduced.partToPart.variance, 10.25, 5e-3);
  EXPECT_NEAR(reduced.gauge.variance, 0.89, 5e-3);
}

// AIAG, "Measurement Systems Analysis Reference Manual": the report of the same data sheet by
// average and range.
TEST(GaugeStudy, GivesThePublishedReportByAverageAndRange) {
  statistics::GaugeOptions options;
  options.method = GaugeMethod::AverageAndRange;
  const GaugeStudy study = studyOf(test::aiagStudy(), options);
  EXPECT_NEAR(study.repeatability.deviation, 0.20188, 2e-5);
  EXPECT_NEAR(study.appraiser.deviation, 0.22963, 1e-4);  // printed from rounded factors
  EXPECT_NEAR(study.gauge.deviation, 0.30575, 5e-5);
  EXPECT_NEAR(study.partToPart.deviation, 1.10456, 2e-4);
  EXPECT_NEAR(study.total.deviation, 1.14610, 2e-4);
  EXPECT_NEAR(*study.repeatability.percentStudy, 17.62, 0.01);
  EXPECT_NEAR(*study.appraiser.percentStudy, 20.04, 0.01);
  EXPECT_NEAR(*study.gauge.percentStudy, 26.68, 0.01);
  EXPECT_NEAR(*study.partToPart.percentStudy, 96.38, 0.01);
  EXPECT_EQ(*study.distinctCategories, 5);
  EXPECT_THAT(study.anova, IsEmpty());
}

// D. C. Montgomery, "Introduction to Statistical Quality Control": mean range 1.15, so that the
// repeatability is 1.15 / 1.128 = 1.02. The operators' means, 22.30, 22.275 and 22.60, then lie no
// further apart than it explains.
TEST(GaugeStudy, GivesThePublishedRepeatabilityByRanges) {
  statistics::GaugeOptions options;
  options.method = GaugeMethod::AverageAndRange;
  const GaugeStudy study = studyOf(test::capabilityStudy(), options);
  EXPECT_NEAR(study.repeatability.deviation, 1.02, 5e-3);
  const double apart = 0.325 * 0.5231;
  EXPECT_NEAR(study.appraiser.variance, apart * apart - study.repeatability.variance / 40, 1e-5);
}

TEST(GaugeStudy, HasTheMeansAndRangesOfItsCells) {
  const GaugeStudy study = studyOf(test::aiagStudy());
  EXPECT_THAT(study.parts, ElementsAre("1", "2", "3", "4", "5", "6", "7", "8", "9", "10"));
  EXPECT_THAT(study.appraisers, ElementsAre("A", "B", "C"));
  EXPECT_EQ(study.trials, 3);
  ASSERT_EQ(study.cells.size(), 30U);
  EXPECT_EQ(study.cells[4].part, 1U);
  EXPECT_EQ(study.cells[4].appraiser, 1U);
  EXPECT_NEAR(study.cells[4].mean, -0.79, 1e-12);
  EXPECT_NEAR(study.cells[4].range, 0.75, 1e-12);
}

TEST(GaugeStudy, ComparesWithATolerance) {
  statistics::GaugeOptions options;
  EXPECT_EQ(studyOf(test::aiagStudy(), options).gauge.percentTolerance.reason(), "no tolerance");
  for (const double none : {0.0, -1.0, kNaN, std::numeric_limits<double>::infinity()}) {
    options.tolerance = none;
    EXPECT_EQ(studyOf(test::aiagStudy(), options).gauge.percentTolerance.reason(),
              "the tolerance is not above 0");
  }
  options.tolerance = 4;
  const GaugeStudy study = studyOf(test::aiagStudy(), options);
  EXPECT_NEAR(study.gauge.studyVariation, 6 * 0.302373, 1e-5);
  EXPECT_NEAR(*study.gauge.percentTolerance, 100 * 6 * 0.302373 / 4, 1e-3);
}

TEST(GaugeStudy, PoolsByTheGivenProbability) {
  statistics::GaugeOptions options;
  options.poolAbove = 0.98;
  EXPECT_FALSE(studyOf(test::aiagStudy(), options).pooled);
  options.poolAbove = 0.97;
  EXPECT_TRUE(studyOf(test::aiagStudy(), options).pooled);
}

TEST(GaugeStudy, SaysWhichTrialsAreMissing) {
  std::vector<Reading> readings = test::aiagStudy();
  readings.erase(readings.begin() + 5);  // part 1, B, trial 3
  readings[20].value = kNaN;
  EXPECT_EQ(gaugeStudy(readings).reason(),
            "not every part was measured equally often by every appraiser: part 1 by B lacks trial "
            "3; part 3 by B has no finite value in trial 1");
  const std::vector<statistics::MissingTrial> missing = statistics::missingTrials(readings);
  ASSERT_EQ(missing.size(), 2U);
  EXPECT_EQ(missing[0].part, "1");
  EXPECT_EQ(missing[0].appraiser, "B");
  EXPECT_EQ(missing[0].trial, 3);
  EXPECT_FALSE(missing[0].notFinite);
  EXPECT_EQ(missing[1].part, "3");
  EXPECT_EQ(missing[1].trial, 1);
  EXPECT_TRUE(missing[1].notFinite);
}

TEST(GaugeStudy, SaysHowMuchMoreIsMissing) {
  std::vector<Reading> readings = test::aiagStudy();
  readings.push_back({"10", "C", 0});
  const std::string reason = gaugeStudy(readings).reason();
  EXPECT_THAT(reason, testing::EndsWith("; part 3 by B lacks trial 4; and 21 more"));
  EXPECT_EQ(statistics::missingTrials(readings).size(), 29U);
}

TEST(GaugeStudy, NeedsTwoOfEach) {
  const std::string need = "a study needs at least 2 parts, 2 appraisers and 2 trials; here are ";
  EXPECT_EQ(gaugeStudy({}).reason(), need + "0 parts, 0 appraisers and 0 trials");
  EXPECT_EQ(gaugeStudy(readingsOf(2, 2, {1, 2, 3, 4})).reason(),
            need + "1 part, 2 appraisers and 2 trials");
  EXPECT_EQ(gaugeStudy(readingsOf(1, 2, {1, 2, 3, 4})).reason(),
            need + "2 parts, 1 appraiser and 2 trials");
  EXPECT_EQ(gaugeStudy(readingsOf(2, 1, {1, 2, 3, 4})).reason(),
            need + "2 parts, 2 appraisers and 1 trial");
  EXPECT_TRUE(gaugeStudy(readingsOf(2, 2, {1, 2, 3, 4, 5, 6, 7, 9})));
}

TEST(GaugeStudy, OfEqualValuesHasNoShares) {
  for (const GaugeMethod method : {GaugeMethod::Anova, GaugeMethod::AverageAndRange}) {
    statistics::GaugeOptions options;
    options.method = method;
    options.tolerance = 1;
    const GaugeStudy study = studyOf(readingsOf(2, 3, std::vector<double>(12, 0.1)), options);
    EXPECT_EQ(study.total.deviation, 0);
    EXPECT_EQ(study.gauge.contribution.reason(), "there is no variation");
    EXPECT_EQ(study.gauge.percentStudy.reason(), "there is no variation");
    EXPECT_EQ(*study.gauge.percentTolerance, 0);
    EXPECT_EQ(study.distinctCategories.reason(), "the gauge shows no variation");
  }
}

// Parts that are each read the same by everybody each time, though their means are not exact.
TEST(GaugeStudy, OfAPerfectGaugeIsAllParts) {
  for (const GaugeMethod method : {GaugeMethod::Anova, GaugeMethod::AverageAndRange}) {
    statistics::GaugeOptions options;
    options.method = method;
    std::vector<double> values;
    for (const double part : {0.1, 0.35, 0.7, 0.9, 1.3}) values.insert(values.end(), 21, part);
    const GaugeStudy study = studyOf(readingsOf(3, 7, values), options);
    EXPECT_EQ(study.gauge.variance, 0);
    EXPECT_EQ(*study.partToPart.contribution, 100);
    EXPECT_EQ(study.distinctCategories.reason(), "the gauge shows no variation");
    if (method == GaugeMethod::Anova) {
      EXPECT_EQ(study.anova[2].p.reason(), "there is no variation to test against");
      EXPECT_THAT(study.notes, ElementsAre("There is no interaction of part and appraiser."));
    }
  }
}

TEST(GaugeStudy, TellsAtLeastOneCategory) {
  // Parts that are alike: all variation is the gauge's.
  const GaugeStudy study = studyOf(readingsOf(2, 2, {1, 2, 2, 1, 2, 1, 1, 2, 1, 2, 1, 2}));
  EXPECT_EQ(study.partToPart.variance, 0);
  EXPECT_EQ(*study.distinctCategories, 1);
  EXPECT_THAT(study.notes, testing::Contains("The variance of the parts came out below 0 and is "
                                             "taken as 0."));
}

TEST(GaugeStudy, KeepsASmallSpreadFarFromZero) {
  std::vector<Reading> readings = test::impedanceStudy();
  for (Reading& reading : readings) reading.value = 1e12 + reading.value / 4;
  const GaugeStudy study = studyOf(readings);
  EXPECT_NEAR(16 * study.anova[2].sumOfSquares, 48.51111111111111, 1e-9);
  EXPECT_NEAR(16 * study.anova[3].sumOfSquares, 30.66666666666667, 1e-9);
}

TEST(GaugeStudy, IsAbsentBeyondTheRangeOfNumbers) {
  const double large = std::numeric_limits<double>::max();
  for (const GaugeMethod method : {GaugeMethod::Anova, GaugeMethod::AverageAndRange}) {
    statistics::GaugeOptions options;
    options.method = method;
    EXPECT_EQ(gaugeStudy(readingsOf(2, 2, {-large, large, 1, 2, 3, 4, 5, 6}), options).reason(),
              "beyond the range of numbers");
  }
}

TEST(GuardBand, IsTheQuantileOfTheGaugesDeviation) {
  // 1.645 and 2.326: the normal quantiles in every table.
  EXPECT_NEAR(*statistics::guardBand(2), 2 * 1.645, 1e-3);
  EXPECT_NEAR(*statistics::guardBand(1, 0.99), 2.326, 5e-4);
  EXPECT_NEAR(*statistics::guardBand(studyOf(test::aiagStudy()).gauge.deviation), 0.497, 5e-4);
  EXPECT_EQ(*statistics::guardBand(0), 0);
}

TEST(GuardBand, IsAbsentForWhatIsNoGauge) {
  EXPECT_EQ(statistics::guardBand(-1).reason(), "the deviation is below 0");
  EXPECT_FALSE(statistics::guardBand(kNaN));
  for (const double none : {0.5, 1.0, kNaN}) {
    EXPECT_EQ(statistics::guardBand(1, none).reason(), "the probability is not between 0.5 and 1");
  }
}

}  // namespace
