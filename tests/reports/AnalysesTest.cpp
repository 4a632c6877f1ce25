#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "SampleRuns.h"
#include "reports/Reports.h"
#include "statistics/GaugeStudy.h"

// What reports compute from measurements, on small stores.

namespace {

using reports::By;
using reports::Report;
using results::RunKind;
using results::Verdict;
using test::numberIn;
using test::rowsOf;
using test::SampleRun;
using test::SampleStore;
using test::textIn;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr double kD2 = 1.1283791670955126;  // of two values: 2 / sqrt(pi)

class Analyses : public testing::Test {
 protected:
  /// One device after the other, each with one value of V1.
  void measure(const std::vector<double>& values, const SampleRun& like = {}) {
    for (const double value : values) {
      SampleRun run = like;
      if (run.serial.empty()) run.serial = "QB-" + std::to_string(++devices_);
      run.values = {value};
      store.add(run);
    }
  }
  Report capability(results::Filter filter = {}) {
    auto queries = store.queries();
    return reports::capabilityReport(queries, {"results.db", std::move(filter)});
  }
  Report trend(const std::string& subTest = "V1") {
    auto queries = store.queries();
    results::Filter filter;
    filter.subTests = {subTest};
    return reports::trendReport(queries, {"results.db", filter});
  }
  Report grr(const reports::GrrOptions& options = {}) {
    auto queries = store.queries();
    return reports::grrReport(queries, {"results.db", {}}, options);
  }
  Report compare(const reports::CompareOptions& options) {
    auto queries = store.queries();
    return reports::compareReport(queries, {"results.db", {}}, options);
  }
  template <typename Make>
  static std::string refusal(Make make) {
    try {
      make();
    } catch (const reports::NoReport& reason) {
      return std::string(reason.what()) + "|" + reason.advice();
    }
    return "";
  }

  SampleStore store;

 private:
  int devices_ = 0;
};

TEST_F(Analyses, capabilityOfValuesThatAreKnown) {
  measure({5, 5.1, 4.9, 5, 5.1});
  const Report report = capability();
  const auto values = rowsOf(report, "values").at(0);
  EXPECT_EQ(textIn(values.at("sub_test")), "V1");
  EXPECT_EQ(numberIn(values.at("n")), 5);
  EXPECT_NEAR(numberIn(values.at("mean")), 5.02, 1e-12);
  const double overall = std::sqrt(0.028 / 4);
  const double within = 0.125 / kD2;
  EXPECT_NEAR(numberIn(values.at("deviation_overall")), overall, 1e-12);
  EXPECT_NEAR(numberIn(values.at("deviation_within")), within, 1e-12);
  const auto indices = rowsOf(report, "indices").at(0);
  EXPECT_NEAR(numberIn(indices.at("cp")), 2 / (6 * within), 1e-12);
  EXPECT_NEAR(numberIn(indices.at("cpk")), 0.98 / (3 * within), 1e-12);
  EXPECT_NEAR(numberIn(indices.at("pp")), 2 / (6 * overall), 1e-12);
  EXPECT_NEAR(numberIn(indices.at("ppk")), 0.98 / (3 * overall), 1e-12);
  EXPECT_LT(numberIn(indices.at("ppk_low")), 0.98 / (3 * overall));
  EXPECT_GT(numberIn(indices.at("ppk_high")), 0.98 / (3 * overall));
  EXPECT_THAT(textIn(indices.at("warnings")), HasSubstr("fewer than 30 values"));
  EXPECT_EQ(report.charts.size(), 1U);
}

TEST_F(Analyses, capabilityLeavesOutWhatDoesNotCount) {
  measure({5, 5.1, 4.9});
  SampleRun retest;
  retest.kind = RunKind::Retest;
  measure({4.5}, retest);
  SampleRun broken;
  broken.verdict = Verdict::BrokenOff;
  measure({4.6}, broken);
  SampleRun repeated;
  repeated.superseded = 3;
  measure({5.05}, repeated);
  measure({std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity()});
  const auto values = rowsOf(capability(), "values").at(0);
  EXPECT_EQ(numberIn(values.at("n")), 4);
  EXPECT_EQ(numberIn(values.at("minimum")), 4.9);
  EXPECT_EQ(numberIn(values.at("not_finite")), 2);
  results::Filter filter;
  filter.kinds = {RunKind::Production, RunKind::Retest};
  EXPECT_EQ(numberIn(rowsOf(capability(filter), "values").at(0).at("n")), 5);
}

TEST_F(Analyses, limitsAreNeverMixed) {
  measure({5, 5.1, 4.9});
  SampleRun tighter;
  tighter.low = 4.5;
  measure({5, 5.2}, tighter);
  const Report report = capability();
  const auto rows = rowsOf(report, "values");
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_EQ(numberIn(rows[0].at("n")) + numberIn(rows[1].at("n")), 5);
  EXPECT_THAT(report.notes, ElementsAre(HasSubstr("Voltages / V1 had 2 sets of limits")));
}

TEST_F(Analyses, figuresThatThereAreNotSayWhy) {
  measure({5, 5});
  auto row = rowsOf(capability(), "indices").at(0);
  EXPECT_TRUE(row.at("cpk").isAbsent());
  EXPECT_NE(row.at("cpk").reason(), "");
  SampleRun other;
  other.low = 3;
  measure({5}, other);  // one device
  for (const auto& each : rowsOf(capability(), "values")) {
    if (numberIn(each.at("n")) == 1) {
      EXPECT_TRUE(each.at("deviation_overall").isAbsent());
      EXPECT_NE(each.at("deviation_overall").reason(), "");
    }
  }
}

TEST_F(Analyses, withoutNumbersThereIsNoCapability) {
  store.addAll({"A"});
  EXPECT_THAT(refusal([&] { capability(); }), HasSubstr("no numbers were measured"));
}

TEST_F(Analyses, trendMarksSignalsAndChanges) {
  measure({5, 5.01, 4.99, 5, 5.01, 5, 4.99, 5.01, 5, 4.99});
  SampleRun changed;
  changed.low = 4.5;
  changed.version = "1.1";
  changed.instrument = "0816";
  measure({5.5}, changed);
  const Report report = trend();
  const auto limits = rowsOf(report, "control_limits").at(0);
  EXPECT_EQ(numberIn(limits.at("n")), 11);
  const double mean = (49.99 + 0.01 + 5.5) / 11;
  EXPECT_NEAR(numberIn(limits.at("centre")), mean, 1e-9);
  const auto signals = rowsOf(report, "signals");
  ASSERT_FALSE(signals.empty());
  EXPECT_EQ(textIn(signals.back().at("serial")), "QB-11");
  EXPECT_EQ(textIn(signals.back().at("rule")), "one point beyond three deviations");
  std::vector<std::string> changes;
  for (const auto& row : rowsOf(report, "changes")) changes.push_back(textIn(row.at("change")));
  EXPECT_THAT(changes, ElementsAre("limits: 4 to 6 -> 4.5 to 6", "plug-in: 1.0 -> 1.1",
                                   HasSubstr("instruments of line 3 / left: meter M1 0815")));
  EXPECT_EQ(rowsOf(report, "values").size(), 11U);
  EXPECT_EQ(report.charts.size(), 2U);
}

TEST_F(Analyses, trendWantsOneSubTest) {
  SampleRun run{"A"};
  run.values = {5, 5};
  store.add(run);
  auto queries = store.queries();
  EXPECT_THAT(refusal([&] {
                reports::trendReport(queries, {"results.db", {}});
              }),
              HasSubstr("these fit:\n  Voltages / V1\n  Voltages / V2|Choose one"));
  SampleRun study{"B"};
  study.kind = RunKind::Study;
  study.values = {5, 5, 5};
  store.add(study);
  EXPECT_THAT(refusal([&] { trend("V3"); }), HasSubstr("no numbers were measured in the runs"));
  EXPECT_THAT(refusal([&] { trend("V4"); }), HasSubstr("has no sub-test V4|Did you mean V1?"));
}

/// A study of units by operators, several times.
class Study : public Analyses {
 protected:
  void study() {
    for (int trial = 0; trial < 2; ++trial) {
      for (int unit = 0; unit < 5; ++unit) {
        for (int person = 0; person < 2; ++person) {
          const double value =
              4.8 + 0.1 * unit + 0.01 * person + 0.005 * ((trial * 7 + unit * 3 + person * 5) % 4);
          add("U" + std::to_string(unit), person == 0 ? "Ada" : "Bob", value);
        }
      }
    }
  }
  void add(const std::string& serial, const std::string& person, double value) {
    SampleRun run{serial};
    run.kind = RunKind::Study;
    run.operatorName = person;
    run.values = {value};
    readings.push_back({serial, person, value});
    store.add(run);
  }

  std::vector<statistics::Reading> readings;
};

TEST_F(Study, partsAreSerialsAndTrialsAreRepeats) {
  study();
  measure({5, 5.1});  // production does not count
  const auto expected = statistics::gaugeStudy(readings, {statistics::GaugeMethod::Anova, 2.0});
  ASSERT_TRUE(expected);
  const Report report = grr();
  const auto rows = rowsOf(report, "components");
  EXPECT_EQ(textIn(rows.at(0).at("source")), "Gauge R&R");
  EXPECT_DOUBLE_EQ(numberIn(rows.at(0).at("variance")), expected->gauge.variance);
  EXPECT_DOUBLE_EQ(numberIn(rows.at(0).at("tolerance_share")),
                   *expected->gauge.percentTolerance / 100);
  EXPECT_DOUBLE_EQ(numberIn(rows.back().at("deviation")), expected->total.deviation);
  EXPECT_EQ(numberIn(rowsOf(report, "summary").at(0).at("categories")),
            static_cast<double>(*expected->distinctCategories));
  EXPECT_THAT(report.about.back().second, "5 units, 2 appraisers (operator), 2 trials");
  EXPECT_EQ(rowsOf(report, "readings").size(), 20U);
  EXPECT_EQ(report.charts.size(), 4U);
  EXPECT_EQ(grr({By::Operator, true}).about.at(2).second, "average and range");
}

TEST_F(Study, aStudyThatLacksATrialIsRefusedWithIt) {
  study();
  add("U0", "Ada", 4.8);
  const std::string reason = refusal([&] { grr(); });
  EXPECT_THAT(reason, HasSubstr("this is no gauge study: "));
  EXPECT_THAT(reason, HasSubstr("  unit U0, operator Bob, trial 3: missing"));
}

TEST_F(Study, onlyWhatWasStudiedIsMeant) {
  study();
  SampleRun run{"A"};
  run.values = {5, 5, 5};  // V2 and V3 are of production alone
  store.add(run);
  EXPECT_EQ(grr().title, "Gauge R&R of Voltages / V1");
}

TEST_F(Study, withoutStudyRunsThereIsNone) {
  measure({5, 5.1});
  EXPECT_THAT(refusal([&] { grr(); }), HasSubstr("there are no runs of the kind study"));
}

TEST_F(Study, aStudyGivesCapabilityItsGuardBand) {
  study();
  measure({5, 5.1, 5.2});
  const auto expected = statistics::gaugeStudy(readings, {statistics::GaugeMethod::Anova, 2.0});
  const auto band = statistics::guardBand(expected->gauge.deviation);
  EXPECT_DOUBLE_EQ(numberIn(rowsOf(capability(), "indices").at(0).at("guard_band")), *band);
}

TEST_F(Analyses, compareTellsAShiftFromChance) {
  SampleRun right;
  right.site = "right";
  for (int i = 0; i < 10; ++i) {
    measure({5 + 0.01 * (i % 3)});
    measure({5.2 + 0.01 * (i % 3)}, right);
  }
  const Report report = compare({By::Site, {"left", "right"}});
  const auto row = rowsOf(report, "values").at(0);
  EXPECT_EQ(numberIn(row.at("n_first")), 10);
  EXPECT_EQ(numberIn(row.at("n_second")), 10);
  EXPECT_NEAR(numberIn(row.at("shift")), 0.2, 1e-12);
  EXPECT_EQ(textIn(row.at("differs")), "mean");
  const auto runs = rowsOf(report, "runs");
  EXPECT_EQ(numberIn(runs.at(1).at("runs")), 10);
  const auto same = rowsOf(compare({By::Site, {"left", "left"}}), "values").at(0);
  EXPECT_EQ(textIn(same.at("differs")), "no");
}

TEST_F(Analyses, compareTakesPeriodsAndRefusesNamesThatAreNone) {
  measure({5, 5.1});
  SampleRun later;
  later.day = 1;
  measure({5.5, 5.6}, later);
  const auto row =
      rowsOf(compare({std::nullopt, {"2026-11-20..2026-11-21", "2026-11-21.."}}), "values").at(0);
  EXPECT_NEAR(numberIn(row.at("shift")), 0.5, 1e-12);
  EXPECT_THAT(refusal([&] {
                compare({By::Site, {"left", "lift"}});
              }),
              HasSubstr("no site lift|Did you mean left?"));
  EXPECT_THAT(refusal([&] {
                compare({std::nullopt, {"2026-11-20", "2026-11-21.."}});
              }),
              HasSubstr("2026-11-20 is no period"));
}

TEST_F(Analyses, testTimesHavePercentiles) {
  measure({5, 5.1, 5.2});
  const auto rows = rowsOf(compare({}), "times");
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_EQ(textIn(rows[0].at("test")), "(whole device)");
  EXPECT_DOUBLE_EQ(numberIn(rows[0].at("p50")), 2);
  EXPECT_EQ(textIn(rows[1].at("test")), "Voltages");
  EXPECT_DOUBLE_EQ(numberIn(rows[1].at("p99")), 1);
  EXPECT_DOUBLE_EQ(numberIn(rows[1].at("share")), 1);
}

}  // namespace
