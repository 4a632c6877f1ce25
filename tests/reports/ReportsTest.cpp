#include "reports/Reports.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "SampleRuns.h"
#include "reports/Format.h"
#include "reports/Moment.h"
#include "reports/Outputs.h"

// Reports on small stores whose figures are counted by hand.

namespace {

using reports::By;
using reports::Report;
using reports::Request;
using results::RunKind;
using results::Verdict;
using test::numberIn;
using test::rowsOf;
using test::SampleRun;
using test::SampleStore;
using test::textIn;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class Reports : public testing::Test {
 protected:
  Report yield(const std::vector<By>& by = {}, results::Filter filter = {}) {
    auto queries = store.queries();
    return reports::yieldReport(queries, {"results.db", std::move(filter)}, by);
  }
  Report pareto(results::Filter filter = {}) {
    auto queries = store.queries();
    return reports::paretoReport(queries, {"results.db", std::move(filter)});
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
};

TEST_F(Reports, yieldCountsUnitsByTheirFirstAndLastRuns) {
  store.addAll({"A", "B", "C", "D"});
  store.addAll({"E", "F"}, Verdict::Fail);
  store.addAll({"E"});                 // passes at its second run
  store.addAll({"A"}, Verdict::Fail);  // fails at its last
  store.addAll({"G"}, Verdict::BrokenOff);
  store.addAll({"G"});  // its first run that counts
  const auto rows = rowsOf(yield(), "by_process");
  ASSERT_EQ(rows.size(), 1U);
  const auto& row = rows.front();
  EXPECT_EQ(textIn(row.at("process")), "(none)");
  EXPECT_EQ(numberIn(row.at("units")), 7);
  EXPECT_EQ(numberIn(row.at("new_units")), 7);
  EXPECT_EQ(numberIn(row.at("first_pass")), 5);  // A B C D G
  EXPECT_DOUBLE_EQ(numberIn(row.at("first_pass_yield")), 5.0 / 7);
  EXPECT_EQ(numberIn(row.at("final_pass")), 5);  // B C D E G
  EXPECT_EQ(numberIn(row.at("runs")), 9);
  EXPECT_EQ(numberIn(row.at("passed_runs")), 6);
  EXPECT_DOUBLE_EQ(numberIn(row.at("report_yield")), 6.0 / 9);
  // Wilson's interval of 5 of 7, by its formula.
  const double z = 1.959963984540054;
  const double p = 5.0 / 7;
  const double centre = (p + z * z / 14) / (1 + z * z / 7);
  const double reach = z * std::sqrt(p * (1 - p) / 7 + z * z / 196) / (1 + z * z / 7);
  EXPECT_NEAR(numberIn(row.at("first_pass_low")), centre - reach, 1e-12);
  EXPECT_NEAR(numberIn(row.at("first_pass_high")), centre + reach, 1e-12);
}

TEST_F(Reports, runsThatDoNotCountAreCountedApart) {
  store.addAll({"A", "B"});
  store.addAll({"A"}, Verdict::Fail);
  store.addAll({"C"}, Verdict::BrokenOff);
  store.addAll({"D"}, Verdict::Incomplete);
  store.addAll({"E"}, Verdict::Running);
  for (const RunKind kind : {RunKind::Golden, RunKind::Study, RunKind::Study, RunKind::Debug}) {
    SampleRun run{"G"};
    run.kind = kind;
    store.add(run);
  }
  SampleRun repeated{"H"};
  repeated.values = {5};
  repeated.superseded = 3;
  store.add(repeated);
  const Report report = yield();
  EXPECT_EQ(numberIn(rowsOf(report, "by_process").at(0).at("units")), 3);  // A B H
  std::vector<double> counts;
  for (const auto& row : rowsOf(report, "apart")) counts.push_back(numberIn(row.at("runs")));
  EXPECT_THAT(counts, ElementsAre(1, 1, 1, 1, 1, 1, 2, 1));
  // Asked for, they count.
  results::Filter filter;
  filter.kinds = {RunKind::Study};
  EXPECT_EQ(numberIn(rowsOf(yield({}, filter), "by_process").at(0).at("runs")), 2);
}

TEST_F(Reports, aUnitIsNewWhereItsFirstRunIsWhateverTheFilter) {
  SampleRun run{"A"};
  run.verdict = Verdict::Fail;
  store.add(run);
  run.verdict = Verdict::Pass;
  run.site = "right";
  run.day = 1;
  store.add(run);
  run.serial = "B";
  store.add(run);
  results::Filter filter;
  filter.sites = {"right"};
  const auto row = rowsOf(yield({}, filter), "by_process").at(0);
  EXPECT_EQ(numberIn(row.at("units")), 2);
  EXPECT_EQ(numberIn(row.at("new_units")), 1);
  EXPECT_EQ(numberIn(row.at("first_pass")), 1);
  // Neither is a first pass made of a failure by leaving its day out.
  filter = {};
  filter.sinceUs = SampleStore::kFirstDay + 24 * 60 * SampleStore::kMinute;
  filter.serials = {"A"};
  const auto alone = rowsOf(yield({}, filter), "by_process").at(0);
  EXPECT_EQ(numberIn(alone.at("new_units")), 0);
  EXPECT_TRUE(alone.at("first_pass_yield").isAbsent());
  EXPECT_EQ(alone.at("first_pass_yield").reason(), "no unit was tested for the first time here");
  EXPECT_DOUBLE_EQ(numberIn(alone.at("final_yield")), 1);
}

TEST_F(Reports, yieldIsToldApartByDayAndSite) {
  SampleRun run{"A"};
  store.add(run);
  run = {"B", Verdict::Fail};
  run.day = 1;
  run.site = "right";
  store.add(run);
  const Report report = yield({By::Day, By::Site, By::Part});
  const auto days = rowsOf(report, "by_day");
  ASSERT_EQ(days.size(), 2U);
  EXPECT_EQ(textIn(days[0].at("day")), "2026-11-20");
  EXPECT_DOUBLE_EQ(numberIn(days[0].at("first_pass_yield")), 1);
  EXPECT_EQ(textIn(days[1].at("day")), "2026-11-21");
  EXPECT_DOUBLE_EQ(numberIn(days[1].at("first_pass_yield")), 0);
  EXPECT_EQ(textIn(rowsOf(report, "by_site").at(1).at("site")), "line 3 / right");
  EXPECT_EQ(textIn(rowsOf(report, "by_part").at(0).at("part")), "(none)");
  EXPECT_EQ(report.charts.size(), 2U);  // one part makes no picture
}

TEST_F(Reports, rolledThroughputIsTheProductOverProcesses) {
  for (const char* const process : {"board", "final"}) {
    for (const char* const serial : {"A", "B", "C", "D"}) {
      SampleRun run{serial};
      run.process = process;
      const bool fails = run.serial == "A" || (run.serial == "B" && *run.process == "final");
      run.verdict = fails ? Verdict::Fail : Verdict::Pass;
      store.add(run);
    }
  }
  const auto row = rowsOf(yield(), "rolled_throughput").at(0);
  EXPECT_EQ(numberIn(row.at("processes")), 2);
  EXPECT_DOUBLE_EQ(numberIn(row.at("yield")), 0.75 * 0.5);
  EXPECT_LT(numberIn(row.at("low")), 0.75 * 0.5);
  EXPECT_GT(numberIn(row.at("high")), 0.75 * 0.5);
}

TEST_F(Reports, paretoTellsFirstAndAllFailures) {
  store.add({"A"});
  const auto fails = [&](const std::string& serial, std::vector<double> values, std::size_t first,
                         const std::string& site) {
    SampleRun run{serial, Verdict::Fail, std::move(values), site};
    run.firstFailure = first;
    store.add(run);
  };
  fails("B", {7, 7}, 0, "left");
  fails("C", {7, 5}, 0, "left");
  fails("D", {5, 7}, 1, "right");
  store.add({"E", Verdict::Fail});  // by an error
  SampleRun repeated{"F", Verdict::Pass, {5}};
  repeated.superseded = 7;
  store.add(repeated);
  const Report report = pareto();
  const auto rows = rowsOf(report, "by_sub_test");
  ASSERT_EQ(rows.size(), 3U);
  EXPECT_EQ(textIn(rows[0].at("sub_test")), "V1");
  EXPECT_EQ(numberIn(rows[0].at("first_failures")), 2);
  EXPECT_DOUBLE_EQ(numberIn(rows[0].at("share")), 0.5);
  EXPECT_EQ(numberIn(rows[0].at("all_failures")), 2);
  EXPECT_EQ(numberIn(rows[0].at("superseded")), 1);
  EXPECT_EQ(textIn(rows[1].at("sub_test")), "V2");
  EXPECT_EQ(numberIn(rows[1].at("first_failures")), 1);
  EXPECT_EQ(numberIn(rows[1].at("all_failures")), 2);
  EXPECT_DOUBLE_EQ(numberIn(rows[1].at("cumulative")), 0.75);
  EXPECT_EQ(textIn(rows[2].at("test")), "(no failed record)");
  EXPECT_DOUBLE_EQ(numberIn(rows[2].at("cumulative")), 1);
  const auto sites = rowsOf(report, "by_site");
  EXPECT_EQ(textIn(sites.at(0).at("site")), "left");
  EXPECT_EQ(numberIn(sites.at(0).at("first_failures")), 3);
  EXPECT_EQ(numberIn(sites.at(1).at("first_failures")), 1);
}

TEST_F(Reports, nothingFailed) {
  store.addAll({"A"});
  const Report report = pareto();
  EXPECT_THAT(report.notes, ElementsAre("Nothing failed in the runs of the filter."));
  EXPECT_TRUE(report.charts.empty());
}

TEST_F(Reports, paretoTellsOfRunsThatAreNoFailures) {
  store.addAll({"A", "B"}, Verdict::BrokenOff);
  EXPECT_THAT(pareto().notes, ElementsAre("Nothing failed in the runs of the filter.",
                                          "Not counted, being no failures: 2 runs broken off."));
  store.addAll({"C"}, Verdict::Fail);
  store.addAll({"D"}, Verdict::Incomplete);
  store.addAll({"E"}, Verdict::Running);
  SampleRun debug{"F", Verdict::BrokenOff};
  debug.kind = RunKind::Debug;
  store.add(debug);
  EXPECT_THAT(pareto().notes,
              ElementsAre("Not counted, being no failures: 2 runs broken off, 1 run incomplete."));
  results::Filter filter;
  filter.kinds = {RunKind::Debug};
  EXPECT_THAT(pareto(filter).notes.back(), HasSubstr(": 1 run broken off."));
}

TEST_F(Reports, anEmptyStoreAndANameThatIsNotThereAreToldInWords) {
  EXPECT_EQ(refusal([&] { yield(); }), "the store has no runs yet|");
  store.addAll({"A"});
  results::Filter filter;
  filter.subTests = {"V9"};
  EXPECT_EQ(refusal([&] { yield({}, filter); }), "the store has no sub-test V9|");
  SampleRun run{"A"};
  run.values = {5};
  store.add(run);
  EXPECT_EQ(refusal([&] { yield({}, filter); }), "the store has no sub-test V9|Did you mean V1?");
  filter = {};
  filter.untilUs = 1;
  EXPECT_THAT(refusal([&] { pareto(filter); }), HasSubstr("no run fits the filter|"));
}

TEST(ReportMoments, areReadInLocalTime) {
  setenv("TZ", "Europe/Berlin", 1);
  tzset();
  const std::int64_t now = 1'795'280'000'000'000;  // 2026-11-21 16:53:20 UTC
  const auto moment = [&](const std::string& text) {
    const auto found = reports::momentOf(text, now);
    return found ? reports::exactTime(*found) : std::string("none");
  };
  EXPECT_EQ(moment("2026-11-21"), "2026-11-20T23:00:00.000000Z");
  EXPECT_EQ(moment("2026-07-01T08:30"), "2026-07-01T06:30:00.000000Z");
  EXPECT_EQ(moment("2026-07-01T08:30:15"), "2026-07-01T06:30:15.000000Z");
  EXPECT_EQ(moment("today"), "2026-11-20T23:00:00.000000Z");
  EXPECT_EQ(moment("yesterday"), "2026-11-19T23:00:00.000000Z");
  EXPECT_EQ(moment("7d"), "2026-11-14T16:53:20.000000Z");
  EXPECT_EQ(moment("2h"), "2026-11-21T14:53:20.000000Z");
  for (const char* const none : {"", "d", "x7d", "2026-11", "2026-11-31", "2026-13-01", "-1d",
                                 "2026-11-21T25:00", "2026-11-21T08:0a", "tomorrow"}) {
    EXPECT_EQ(moment(none), "none") << none;
  }
  setenv("TZ", "UTC", 1);
  tzset();
}

Report sampleReport() {
  Report report;
  report.name = "sample";
  report.title = "A <b>title</b>";
  report.tables.push_back({"main",
                           "Table",
                           {{"name", "Name"},
                            {"share", "Share", reports::Kind::Share},
                            {"share_low", "from", reports::Kind::Share, "", true},
                            {"share_high", "to", reports::Kind::Share, "", true},
                            {"at", "At", reports::Kind::Time}},
                           {{"a,\"b\"\n</script>", 0.1, 0.05, 0.25, std::int64_t{1'500'000}},
                            {"", reports::Cell::absent("no units"), reports::Cell(),
                             reports::Cell(), reports::Cell()}}});
  report.charts.push_back(
      {"Chart", "", "", {"</script><script>alert(1)"}, {{"x", reports::Series::Bars, {1.0}}}});
  return report;
}

TEST(ReportOutputs, csvKeepsOneColumnAField) {
  EXPECT_EQ(reports::csvOf(sampleReport().tables.front()),
            "name,share,share_low,share_high,at\r\n"
            "\"a,\"\"b\"\"\n</script>\",0.1,0.05,0.25,1970-01-01T00:00:01.500000Z\r\n"
            "\"\",,,,\r\n");
}

TEST(ReportOutputs, jsonTellsWhyAFieldIsAbsent) {
  const std::string json = reports::jsonOf(sampleReport());
  EXPECT_THAT(json, HasSubstr("\"share\": null"));
  EXPECT_THAT(json, HasSubstr("\"reason\": \"no units\""));
  EXPECT_THAT(json, HasSubstr("\"share\": 0.1"));
}

TEST(ReportOutputs, noTextOfTheStoreBecomesAPartOfThePage) {
  const std::string html = reports::htmlOf(sampleReport());
  EXPECT_THAT(html, HasSubstr("A &lt;b&gt;title&lt;/b&gt;"));
  EXPECT_THAT(html, HasSubstr("a,&quot;b&quot;\\n&lt;/script&gt;"));
  EXPECT_THAT(html, HasSubstr("\\u003c/script>\\u003cscript>alert(1)"));
  EXPECT_THAT(html, Not(HasSubstr("<script>alert")));
  EXPECT_THAT(html, HasSubstr("10.00 % (5.00 to 25.00)"));
  EXPECT_THAT(html, Not(HasSubstr("src=")));  // nothing is fetched
}

TEST(ReportFormat, aShareIsHundredPerCentOnlyWhenAllAre) {
  EXPECT_EQ(reports::shareText(1), "100.00 %");
  EXPECT_EQ(reports::shareText(0.999999), "99.99 %");
  EXPECT_EQ(reports::shareText(0.000001), "0.01 %");
  EXPECT_EQ(reports::shareText(0), "0.00 %");
  EXPECT_EQ(reports::counted(1, "run"), "1 run");
  EXPECT_EQ(reports::counted(1234567, "run"), "1,234,567 runs");
  EXPECT_EQ(reports::grouped(-1234), "-1,234");
}

}  // namespace
