#include "results/Queries.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "results/Samples.h"
#include "results/Store.h"

namespace {

using results::Queries;
using results::Store;
using results::Verdict;
using test::errorOf;
using test::StoreFolder;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;

class QueriesTest : public testing::Test {
 protected:
  /// A device that was tested in a minute, one test of `duration` µs.
  std::string tested(std::int64_t minute, Verdict verdict, std::int64_t duration = 1,
                     const std::string& flow = "Production", const std::string& test = "Voltages") {
    results::Run run = test::sampleRun("QB-" + std::to_string(minute));
    run.startedUs = minute * 60'000'000;
    results::Plan plan = test::samplePlan();
    plan.flow = flow;
    const std::string id = store.beginRun(run, plan).id;
    results::Step step = test::sampleStep(id);
    step.test = test;
    step.startedUs = run.startedUs;
    step.endedUs = run.startedUs + duration;
    step.verdict = verdict;
    store.putStep(step);
    if (verdict != Verdict::Running) store.finishRun(id, {verdict, {}, {}, *step.endedUs});
    return id;
  }
  std::vector<std::string> serials(const std::vector<results::Run>& runs) {
    std::vector<std::string> serials;
    for (const results::Run& run : runs) serials.push_back(run.serial);
    return serials;
  }

  const StoreFolder folder;
  Store store{folder.options};
  Queries queries{folder.options.file};
};

TEST_F(QueriesTest, CountsWhatStartedInATime) {
  tested(1, Verdict::Pass);
  tested(2, Verdict::Pass);
  tested(3, Verdict::Fail);
  tested(4, Verdict::BrokenOff);
  tested(5, Verdict::Running);
  tested(6, Verdict::Pass);
  const auto counters = queries.counters(store.stationId(), 2 * 60'000'000, 6 * 60'000'000);
  EXPECT_EQ(counters.passed, 1);
  EXPECT_EQ(counters.failed, 1);
  EXPECT_EQ(counters.brokenOff, 1);
  EXPECT_EQ(counters.running, 1);
  EXPECT_EQ(counters.incomplete, 0);
  EXPECT_EQ(queries.counters("another", 0, INT64_MAX).passed, 0);
}

TEST_F(QueriesTest, UsualDurationsAreMediansOfPassingRuns) {
  for (const std::int64_t duration : {10, 30, 20}) tested(duration, Verdict::Pass, duration);
  tested(40, Verdict::Fail, 5);
  tested(41, Verdict::Pass, 7, "Audit");
  tested(42, Verdict::Pass, 99, "Production", "Noise");
  EXPECT_THAT(queries.usualDurations("board-test", "Production"),
              ElementsAre(Pair("Noise", 99), Pair("Voltages", 20)));
  EXPECT_THAT(queries.usualDurations("board-test", "Audit"), ElementsAre(Pair("Voltages", 7)));
  EXPECT_THAT(queries.usualDurations("other", "Production"), IsEmpty());
}

TEST_F(QueriesTest, UsualDurationsAreThoseOfTheLastRuns) {
  for (int i = 0; i < 60; ++i) tested(i, Verdict::Pass, 1);
  for (int i = 100; i < 200; ++i) tested(i, Verdict::Pass, 50);
  EXPECT_THAT(queries.usualDurations("board-test", "Production"),
              ElementsAre(Pair("Voltages", 50)));
}

TEST_F(QueriesTest, RunsComeInTheirOrder) {
  tested(2, Verdict::Running);
  tested(1, Verdict::Pass);
  tested(3, Verdict::Fail);
  EXPECT_THAT(serials(queries.lastRuns(store.stationId(), 2)), ElementsAre("QB-3", "QB-2"));
  EXPECT_THAT(serials(queries.lastRuns(store.stationId(), 9)), ElementsAre("QB-3", "QB-2", "QB-1"));
  EXPECT_THAT(serials(queries.unfinishedRuns(store.stationId())), ElementsAre("QB-2"));
  EXPECT_THAT(serials(queries.runsOf("QB-1")), ElementsAre("QB-1"));
  EXPECT_FALSE(queries.run("none"));
}

TEST_F(QueriesTest, TheRecordThatFailedFirstIsNamedByItsRun) {
  const std::string id = tested(1, Verdict::Running);
  store.addMeasurement(test::sampleMeasurement(id, 1, 5.5), test::sampleSpec("1.1"));
  store.addMeasurement(test::sampleMeasurement(id, 2, 5.6), test::sampleSpec("1.2"));
  store.finishRun(id, {Verdict::Fail, 2, {}, 9});
  const auto failed = queries.firstFailure(queries.run(id)->run);
  ASSERT_TRUE(failed);
  EXPECT_EQ(failed->record.value, 5.6);
  EXPECT_EQ(failed->spec.number, "1.2");
  EXPECT_FALSE(queries.firstFailure(queries.run(tested(2, Verdict::Pass))->run));
}

TEST_F(QueriesTest, AStoreThatIsNotThereOrOfAnotherKindIsRefused) {
  const auto missing = folder.folder.path() / "none.db";
  EXPECT_EQ(errorOf([&] { const Queries none(missing); }), missing.string() + ": does not exist");
  const auto other = folder.folder.write("text", std::string(1000, 'x'));
  EXPECT_THAT(errorOf([&] { const Queries none(other); }), HasSubstr("is no results store"));
}

}  // namespace
