#include "results/Store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "results/Clock.h"
#include "results/Content.h"
#include "results/Samples.h"
#include "support/Eventually.h"

namespace {

using results::Mark;
using results::RunContent;
using results::Store;
using results::Verdict;
using test::errorOf;
using test::sampleMeasurement;
using test::samplePlan;
using test::sampleRun;
using test::sampleSpec;
using test::sampleStep;
using test::StoreFolder;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

TEST(Store, ARunIsThereAsSoonAsItHasBegun) {
  const StoreFolder folder;
  Store store(folder.options);
  results::Run given = sampleRun();
  given.batch = "B1";
  given.operatorName = "Ada";
  given.part = "";
  const auto before = results::microsecondsNow();
  const results::Run run = store.beginRun(given, samplePlan());

  const RunContent content = folder.content(run.id);
  EXPECT_EQ(content.run.serial, "QB-1");
  EXPECT_EQ(content.run.site, "left");
  EXPECT_EQ(content.run.runIndex, 7);
  EXPECT_EQ(content.run.batch, "B1");
  EXPECT_EQ(content.run.operatorName, "Ada");
  EXPECT_EQ(content.run.part, "");
  EXPECT_EQ(content.run.revision, std::nullopt);
  EXPECT_EQ(content.run.verdict, Verdict::Running);
  EXPECT_EQ(content.run.stationId, store.stationId());
  EXPECT_GE(content.run.startedUs, before);
  EXPECT_EQ(content.run.endedUs, std::nullopt);
  EXPECT_EQ(content.plan.bundle, "board-test");
  EXPECT_EQ(content.plan.flow, "Production");
}

TEST(Store, EverythingOfARunIsThereWhenItHasFinished) {
  const StoreFolder folder;
  Store store(folder.options);
  const std::string id = store.beginRun(sampleRun(), samplePlan()).id;
  results::Step step = sampleStep(id);
  store.putStep(step);
  results::Measurement failed = sampleMeasurement(id, 1, 4.5);
  failed.verdict = Mark::Fail;
  failed.message = "too low";
  store.addMeasurement(failed, sampleSpec());
  store.supersede(id, 1, 1);
  step.endedUs = 2000;
  step.verdict = Verdict::Fail;
  step.errorDomain = "board";
  step.errorCode = -3;
  store.putStep(step);
  step = sampleStep(id, 1, 2);
  step.endedUs = 3000;
  step.verdict = Verdict::Pass;
  store.putStep(step);
  results::Measurement passed = sampleMeasurement(id, 2, 5.0);
  passed.attempt = 2;
  store.addMeasurement(passed, sampleSpec());
  store.addAttribute({id, 0, "fixture", "F2"});
  store.addAttribute({id, 2, "temperature", "21"});
  store.addInstrument({id, "meter", "", "1.0", 99, results::Calibration::DueSoon},
                      {"", "Acme", "M1", "S1", 1, 99, "C1"});
  store.finishRun(id, {Verdict::Pass, std::nullopt, "fine", 4000});

  const RunContent content = folder.content(id);
  EXPECT_EQ(content.run.verdict, Verdict::Pass);
  EXPECT_EQ(content.run.message, "fine");
  EXPECT_EQ(content.run.endedUs, 4000);
  EXPECT_EQ(content.run.records, 2);
  ASSERT_THAT(content.steps, SizeIs(2));
  EXPECT_EQ(content.steps[0].verdict, Verdict::Fail);
  EXPECT_EQ(content.steps[0].endedUs, 2000);
  EXPECT_EQ(content.steps[0].errorCode, -3);
  EXPECT_EQ(content.steps[1].attempt, 2);
  ASSERT_THAT(content.measurements, SizeIs(2));
  EXPECT_TRUE(content.measurements[0].superseded);
  EXPECT_EQ(content.measurements[0].verdict, Mark::Fail);
  EXPECT_EQ(content.measurements[0].message, "too low");
  EXPECT_FALSE(content.measurements[1].superseded);
  EXPECT_EQ(content.measurements[1].specId, content.measurements[0].specId);
  ASSERT_THAT(content.specs, SizeIs(1));
  EXPECT_EQ(content.specs[0].low, 4.75);
  EXPECT_EQ(content.specs[0].unit, "V");
  ASSERT_THAT(content.attributes, SizeIs(2));
  EXPECT_EQ(content.attributes[1].value, "21");
  ASSERT_THAT(content.runInstruments, SizeIs(1));
  EXPECT_EQ(content.runInstruments[0].state, results::Calibration::DueSoon);
  EXPECT_EQ(content.instruments.at(0).certificate, "C1");
  EXPECT_EQ(content.run.sha256, results::sha256Of(content));
}

TEST(Store, NumbersComeBackBitForBit) {
  const StoreFolder folder;
  Store store(folder.options);
  const std::string id = store.beginRun(sampleRun(), samplePlan()).id;
  using Limits = std::numeric_limits<double>;
  const std::vector<double> values{0.1,
                                   1.0 / 3,
                                   Limits::min(),
                                   Limits::max(),
                                   Limits::lowest(),
                                   Limits::denorm_min(),
                                   1e15 + 0.5,
                                   9007199254740993.,
                                   123456789012345678.,
                                   -1,
                                   2.5e-310,
                                   std::nextafter(5.0, 6.0)};
  for (std::size_t i = 0; i < values.size(); ++i) {
    store.addMeasurement(sampleMeasurement(id, static_cast<std::int64_t>(i) + 1, values[i]),
                         sampleSpec());
  }
  store.finishRun(id, {Verdict::Pass, {}, {}, 0});
  const RunContent content = folder.content(id);
  for (std::size_t i = 0; i < values.size(); ++i) {
    EXPECT_EQ(std::bit_cast<std::uint64_t>(content.measurements.at(i).value.value()),
              std::bit_cast<std::uint64_t>(values[i]))
        << values[i];
  }
}

TEST(Store, ANumberThatIsNotFiniteIsAText) {
  const StoreFolder folder;
  Store store(folder.options);
  const std::string id = store.beginRun(sampleRun(), samplePlan()).id;
  store.addMeasurement(sampleMeasurement(id, 1, std::nan("")), sampleSpec());
  store.addMeasurement(sampleMeasurement(id, 2, HUGE_VAL), sampleSpec());
  store.addMeasurement(sampleMeasurement(id, 3, -HUGE_VAL), sampleSpec());
  store.addMeasurement(sampleMeasurement(id, 4, -0.0), sampleSpec());
  store.addMeasurement(sampleMeasurement(id, 5, std::nullopt), sampleSpec());
  store.finishRun(id, {Verdict::Fail, {}, {}, 0});
  const RunContent content = folder.content(id);
  std::vector<std::string> texts;
  for (const auto& measurement : content.measurements) {
    texts.push_back(measurement.value ? "a number" : measurement.text.value_or("none"));
  }
  EXPECT_THAT(texts, ElementsAre("nan", "inf", "-inf", "a number", "none"));
  EXPECT_EQ(content.measurements[3].value, 0.0);
  EXPECT_EQ(content.run.sha256, results::sha256Of(content));
}

TEST(Store, TextsThatNoDatabaseHoldsAreEscaped) {
  const StoreFolder folder;
  Store store(folder.options);
  results::Run given = sampleRun(std::string("a\0b", 3));
  given.site = "caf\xe9";
  given.batch =
      "gr\xc3\xb6\xc3\x9f"
      "e\n\t'\";--";
  results::Plan plan = samplePlan();
  plan.flow = std::string("\0", 1);
  const std::string id = store.beginRun(given, plan).id;
  results::Measurement measurement = sampleMeasurement(id, 1, std::nullopt);
  measurement.text = "\xff\xfe";
  store.addMeasurement(measurement, sampleSpec());
  store.finishRun(id, {Verdict::Pass, {}, "\xc0\xaf", 0});
  const RunContent content = folder.content(id);
  EXPECT_EQ(content.run.serial, "a\\x00b");
  EXPECT_EQ(content.run.site, "caf\\xe9");
  EXPECT_EQ(content.run.batch, given.batch);
  EXPECT_EQ(content.plan.flow, "\\x00");
  EXPECT_EQ(content.measurements.at(0).text, "\\xff\\xfe");
  EXPECT_EQ(content.run.message, "\\xc0\\xaf");
  EXPECT_EQ(content.run.sha256, results::sha256Of(content));
}

TEST(Store, AStepThatWasRunningWhenItsRunEndedIsBrokenOff) {
  const StoreFolder folder;
  Store store(folder.options);
  const std::string id = store.beginRun(sampleRun(), samplePlan()).id;
  store.putStep(sampleStep(id));
  store.finishRun(id, {Verdict::BrokenOff, {}, "the plug-in crashed", 0});
  EXPECT_EQ(folder.content(id).steps.at(0).verdict, Verdict::BrokenOff);
}

TEST(Store, WhatWasFlushedIsThere) {
  const StoreFolder folder;
  Store store(folder.options);
  const std::string id = store.beginRun(sampleRun(), samplePlan()).id;
  store.addMeasurement(sampleMeasurement(id, 1), sampleSpec());
  store.flush(id);
  EXPECT_THAT(folder.content(id).measurements, SizeIs(1));
}

TEST(Store, WhatComesAfterARunWasHurriedCounts) {
  const StoreFolder folder;
  Store store(folder.options);
  const std::string id = store.beginRun(sampleRun(), samplePlan()).id;
  store.addMeasurement(sampleMeasurement(id, 1), sampleSpec());
  store.hurry(id);
  store.flush(id);
  store.addMeasurement(sampleMeasurement(id, 2), sampleSpec());
  store.supersede(id, sampleMeasurement(id, 1).step, 1);
  store.finishRun(id, {Verdict::Pass, {}, {}, 0});
  const auto content = folder.content(id);
  EXPECT_EQ(content.run.records, 2);
  EXPECT_TRUE(content.measurements.at(0).superseded);
  EXPECT_EQ(content.run.sha256, results::sha256Of(content));
}

TEST(Store, AnEndThatWasExpectedCountsAllThatCameBefore) {
  const StoreFolder folder;
  Store store(folder.options);
  for (int i = 0; i < 20; ++i) {  // at different moments
    const std::string id = store.beginRun(sampleRun(), samplePlan()).id;
    store.addMeasurement(sampleMeasurement(id, 1), sampleSpec());
    store.expectEnd(id);
    if (i % 2 == 1) std::this_thread::sleep_for(std::chrono::milliseconds(i));
    store.addMeasurement(sampleMeasurement(id, 2), sampleSpec());
    store.supersede(id, sampleMeasurement(id, 1).step, 1);
    store.finishRun(id, {Verdict::Pass, {}, {}, 0});
    const auto content = folder.content(id);
    EXPECT_EQ(content.run.verdict, Verdict::Pass);
    EXPECT_EQ(content.run.records, 2);
    EXPECT_TRUE(content.measurements.at(0).superseded);
    EXPECT_EQ(content.run.sha256, results::sha256Of(content));
  }
}

TEST(Store, WhatWasEnteredForAnEndThatDoesNotComeIsThereSoon) {
  const StoreFolder folder;
  Store store(folder.options);
  const std::string id = store.beginRun(sampleRun(), samplePlan()).id;
  store.addMeasurement(sampleMeasurement(id, 1), sampleSpec());
  store.expectEnd(id);
  EXPECT_TRUE(test::eventually([&] { return folder.content(id).measurements.size() == 1; }));
  store.expectEnd(id);  // nothing is queued
  store.flush(id);
  EXPECT_EQ(folder.content(id).run.verdict, Verdict::Running);
}

TEST(Store, AnEndThatWasExpectedJoinsWhatOthersQueueMeanwhile) {
  const StoreFolder folder;
  Store store(folder.options);
  for (const int pause : {0, 1, 5, 5, 5}) {  // once the end is waited for, too
    const std::string left = store.beginRun(sampleRun("QB-1", "left"), samplePlan()).id;
    const std::string right = store.beginRun(sampleRun("QB-2", "right"), samplePlan()).id;
    store.addMeasurement(sampleMeasurement(left, 1), sampleSpec());
    store.expectEnd(left);
    std::this_thread::sleep_for(std::chrono::milliseconds(pause));
    store.addMeasurement(sampleMeasurement(right, 1), sampleSpec());
    store.addMeasurement(sampleMeasurement(right, 1), sampleSpec());  // a second one
    store.expectEnd(right);
    store.finishRun(left, {Verdict::Pass, {}, {}, 0});
    EXPECT_EQ(folder.content(left).run.verdict, Verdict::Pass) << pause;
    EXPECT_EQ(folder.content(left).measurements.size(), 1U);
    EXPECT_THAT(errorOf([&] {
                  store.finishRun(right, {Verdict::Pass, {}, {}, 0});
                }),
                HasSubstr("UNIQUE constraint failed: measurement.run_id, measurement.sequence"));
    store.check();
    EXPECT_EQ(folder.content(right).run.verdict, Verdict::BrokenOff);
  }
}

TEST(Store, ARunThatWasHurriedWithNothingToWriteEndsAsOthersDo) {
  const StoreFolder folder;
  Store store(folder.options);
  const std::string id = store.beginRun(sampleRun(), samplePlan()).id;
  store.hurry(id);
  store.flush(id);
  store.finishRun(id, {Verdict::Pass, {}, {}, 0});
  EXPECT_EQ(folder.content(id).run.verdict, Verdict::Pass);
  EXPECT_THROW(store.flush(id), results::StoreError);
}

TEST(Store, ItsWriteAheadLogDoesNotGrowWithItsRuns) {
  const StoreFolder folder;
  Store store(folder.options);
  for (int device = 0; device < 50; ++device) {
    const std::string id = store.beginRun(sampleRun(), samplePlan()).id;
    for (int i = 1; i <= 150; ++i) {
      store.addMeasurement(sampleMeasurement(id, i), test::sampleSpec("1." + std::to_string(i)));
    }
    store.hurry(id);
    store.flush(id);
    store.finishRun(id, {Verdict::Pass, {}, {}, 0});
  }
  // Some 1000 pages, and what was written until a device had its verdict.
  EXPECT_LT(std::filesystem::file_size(folder.options.file.string() + "-wal"), 6U << 20U);
}

TEST(Store, WhatNobodyWaitsForIsThereSoon) {
  const StoreFolder folder;
  Store store(folder.options);
  const std::string id = store.beginRun(sampleRun(), samplePlan()).id;
  store.addMeasurement(sampleMeasurement(id, 1), sampleSpec());
  for (int i = 0; i < 500 && folder.content(id).measurements.empty(); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  EXPECT_THAT(folder.content(id).measurements, SizeIs(1));
}

TEST(Store, RowsOfARunThatIsNotInProgressAreRefused) {
  const StoreFolder folder;
  Store store(folder.options);
  EXPECT_THAT(errorOf([&] { store.putStep(sampleStep("nobody")); }),
              HasSubstr("results.db: the run nobody is not in progress"));
  const std::string id = store.beginRun(sampleRun(), samplePlan()).id;
  store.finishRun(id, {Verdict::Pass, {}, {}, 0});
  EXPECT_THAT(errorOf([&] {
                store.addAttribute({id, 0, "a", "b"});
              }),
              HasSubstr("is not in progress"));
  EXPECT_THAT(errorOf([&] {
                store.finishRun(id, {Verdict::Fail, {}, {}, 0});
              }),
              HasSubstr("is not in progress"));
  EXPECT_EQ(folder.content(id).run.verdict, Verdict::Pass);
}

TEST(Store, ARefusedRowFailsItsOwnRunAlone) {
  const StoreFolder folder;
  Store store(folder.options);
  const std::string left = store.beginRun(sampleRun("QB-1", "left"), samplePlan()).id;
  const std::string right = store.beginRun(sampleRun("QB-2", "right"), samplePlan()).id;
  store.addMeasurement(sampleMeasurement(left, 1), sampleSpec());
  store.addMeasurement(sampleMeasurement(right, 1), sampleSpec());
  store.addMeasurement(sampleMeasurement(right, 1), sampleSpec());  // a second one of that sequence
  EXPECT_THAT(errorOf([&] {
                store.finishRun(right, {Verdict::Pass, {}, {}, 0});
              }),
              HasSubstr("UNIQUE constraint failed: measurement.run_id, measurement.sequence"));
  store.finishRun(left, {Verdict::Pass, {}, {}, 0});
  store.check();
  EXPECT_EQ(folder.content(left).run.verdict, Verdict::Pass);
  const results::Run broken = folder.content(right).run;
  EXPECT_EQ(broken.verdict, Verdict::BrokenOff);
  EXPECT_THAT(broken.message.value_or(""), StartsWith("not recorded: UNIQUE constraint failed"));
  EXPECT_NE(broken.sha256, std::nullopt);
}

TEST(Store, EventsAreNumbered) {
  const StoreFolder folder;
  Store store(folder.options);
  results::Event event;
  event.kind = "acknowledged";
  event.who = "Ada";
  store.recordEvent(event);
  event.kind = "started";
  event.site = "left";
  store.recordEvent(event);
  const auto events = results::Queries(folder.options.file).lastEvents(store.stationId(), 10);
  ASSERT_THAT(events, SizeIs(2));
  EXPECT_EQ(events[0].kind, "started");
  EXPECT_EQ(events[0].sequence, 2);
  EXPECT_EQ(events[1].who, "Ada");
  EXPECT_GT(events[1].atUs, 0);
}

TEST(Store, AStationKeepsItsIdAcrossStores) {
  const StoreFolder one;
  StoreFolder other;
  const std::string id = Store(one.options).stationId();
  EXPECT_EQ(Store(one.options).stationId(), id);
  other.options.location = "hall 2";
  EXPECT_EQ(Store(other.options).stationId(), id);
  other.options.stationName = "line 4";
  EXPECT_NE(Store(other.options).stationId(), id);
}

TEST(Store, AMachineWithoutIdGetsOneThatTheStoreKeeps) {
  StoreFolder folder;
  folder.options.machineIdFile = folder.folder.path() / "none";
  const std::string id = Store(folder.options).stationId();
  EXPECT_EQ(Store(folder.options).stationId(), id);
  StoreFolder other;
  other.options.machineIdFile = other.folder.path() / "none";
  EXPECT_NE(Store(other.options).stationId(), id);
}

TEST(Store, RunsThatAnEarlierSessionLeftBecomeIncomplete) {
  const StoreFolder folder;
  std::string id;
  {
    Store store(folder.options);
    id = store.beginRun(sampleRun("QB-9", "right"), samplePlan()).id;
    store.putStep(sampleStep(id));
    store.addMeasurement(sampleMeasurement(id, 1), sampleSpec());
    store.finishRun(store.beginRun(sampleRun(), samplePlan()).id, {Verdict::Pass, {}, {}, 0});
  }
  Store store(folder.options);
  const results::Recovered recovered = store.recover();
  EXPECT_FALSE(recovered.unclean);  // it was closed
  ASSERT_THAT(recovered.runs, SizeIs(1));
  EXPECT_EQ(recovered.runs[0].id, id);
  EXPECT_EQ(recovered.runs[0].serial, "QB-9");
  EXPECT_EQ(recovered.runs[0].site, "right");
  const RunContent content = folder.content(id);
  EXPECT_EQ(content.run.verdict, Verdict::Incomplete);
  EXPECT_EQ(content.run.records, 1);
  EXPECT_EQ(content.run.sha256, results::sha256Of(content));
  EXPECT_EQ(content.steps.at(0).verdict, Verdict::Incomplete);
  EXPECT_THAT(store.recover().runs, IsEmpty());
}

TEST(Store, RunsOfALivingSessionAreLeftAlone) {
  const StoreFolder folder;
  Store one(folder.options);
  const std::string id = one.beginRun(sampleRun(), samplePlan()).id;
  Store other(folder.options);
  const results::Recovered recovered = other.recover();
  EXPECT_FALSE(recovered.unclean);
  EXPECT_THAT(recovered.runs, IsEmpty());
  one.finishRun(id, {Verdict::Pass, {}, {}, 0});
  EXPECT_EQ(folder.content(id).run.verdict, Verdict::Pass);
}

}  // namespace
