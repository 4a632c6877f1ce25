#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "results/Content.h"
#include "results/FailingDisk.h"
#include "results/Samples.h"
#include "results/Store.h"

namespace {

using results::RunContent;
using results::Store;
using results::Verdict;
using test::errorOf;
using test::FailingDisk;
using test::sampleMeasurement;
using test::StoreFolder;
using testing::AnyOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

constexpr int kRecords = 6;

/// What a station was told of one device.
struct Told {
  std::string id;  // "": that it could not begin
  bool passed = false;
};

/// Tests one device, whatever the store says.
Told testDevice(Store& store, bool expectsEnd = false) {
  Told told;
  try {
    told.id = store.beginRun(test::sampleRun(), test::samplePlan()).id;
    for (int i = 1; i <= kRecords; ++i) {
      results::Measurement measurement = sampleMeasurement(told.id, i, i);
      measurement.text = std::string(100, 'x');
      store.addMeasurement(measurement, test::sampleSpec("1." + std::to_string(i)));
      if (i == kRecords / 2) store.flush(told.id);
    }
    if (expectsEnd) store.expectEnd(told.id);
    store.finishRun(told.id, {Verdict::Pass, {}, {}, 0});
    told.passed = true;
  } catch (const results::StoreError&) {
    if (!told.id.empty())
      errorOf([&] { store.finishRun(told.id, {Verdict::BrokenOff, {}, {}, 0}); });
  }
  return told;
}

/// Whether the store says of a device what the station was told.
void expectAsTold(results::Queries& queries, const Told& told) {
  if (told.id.empty()) return;
  const auto content = queries.run(told.id);
  ASSERT_TRUE(content);
  EXPECT_EQ(content->run.sha256, results::sha256Of(*content));
  if (told.passed) {
    EXPECT_EQ(content->run.verdict, Verdict::Pass);
    EXPECT_EQ(content->measurements.size(), static_cast<std::size_t>(kRecords));
  } else {
    EXPECT_EQ(content->run.verdict, Verdict::BrokenOff);
    EXPECT_THAT(content->run.message.value_or(""), StartsWith("not recorded: "));
  }
}

/// Lets the disk fail at each of its operations in turn, with a device before, during and after.
void failAtEach(const std::function<void(std::int64_t)>& failAt,
                const std::function<std::int64_t()>& count, bool expectsEnd) {
  const FailingDisk disk;
  const StoreFolder folder;
  std::int64_t most = 1;
  int broken = 0;
  for (std::int64_t n = 1; n <= most; ++n) {
    SCOPED_TRACE("operation " + std::to_string(n));
    FailingDisk::clear();
    Store store(folder.options);
    const Told before = testDevice(store);
    EXPECT_TRUE(before.passed);
    failAt(n);
    const Told during = testDevice(store, expectsEnd);
    if (!during.passed) {
      ++broken;
      EXPECT_NE(errorOf([&] { store.check(); }), "");
      EXPECT_NE(store.failure(), std::nullopt);
    } else {
      // It took fewer operations than were allowed: all have had their turn.
      EXPECT_LT(count(), n);
    }
    FailingDisk::clear();
    const Told after = testDevice(store);
    EXPECT_TRUE(after.passed);
    EXPECT_EQ(store.failure(), std::nullopt);
    results::Queries queries(folder.options.file);
    for (const Told& told : {before, during, after}) expectAsTold(queries, told);
    const auto counters = queries.counters(store.stationId(), 0, INT64_MAX);
    EXPECT_EQ(counters.running, 0);
    if (!during.passed) most = n + 1;
    ASSERT_LT(most, 1000);
  }
  EXPECT_GT(broken, 2);
}

TEST(FullDisk, AtEveryWriteNothingIsCalledStoredThatIsNot) {
  for (const bool expectsEnd : {false, true}) {
    failAtEach(FailingDisk::fillAfter, FailingDisk::writes, expectsEnd);
  }
}

TEST(FullDisk, AtEveryFailedFlushNothingIsCalledStoredThatIsNot) {
  for (const bool expectsEnd : {false, true}) {
    failAtEach(FailingDisk::failFlushesAfter, FailingDisk::flushes, expectsEnd);
  }
}

TEST(FullDisk, EveryConfirmationIsFlushedToTheDisk) {
  const FailingDisk disk;
  const StoreFolder folder;
  Store store(folder.options);
  const std::int64_t before = FailingDisk::flushes();
  const std::string id = store.beginRun(test::sampleRun(), test::samplePlan()).id;
  const std::int64_t begun = FailingDisk::flushes();
  EXPECT_GT(begun, before);
  store.finishRun(id, {Verdict::Pass, {}, {}, 0});
  const std::int64_t finished = FailingDisk::flushes();
  EXPECT_GT(finished, begun);
  for (int i = 0; i < 2; ++i) store.check();  // also when nothing has changed since
  EXPECT_EQ(FailingDisk::flushes(), finished + 2);
}

TEST(FullDisk, AnEndThatWasExpectedNeedsNoFlushOfItsOwn) {
  const FailingDisk disk;
  const StoreFolder folder;
  Store store(folder.options);
  std::int64_t flushes = 0;
  // One that comes too late, on a busy machine, has its own.
  for (int i = 0; i < 50 && flushes != 1; ++i) {
    const std::string id = store.beginRun(test::sampleRun(), test::samplePlan()).id;
    const std::int64_t begun = FailingDisk::flushes();
    store.addMeasurement(sampleMeasurement(id, 1), test::sampleSpec());
    store.expectEnd(id);
    store.finishRun(id, {Verdict::Pass, {}, {}, 0});
    flushes = FailingDisk::flushes() - begun;
    EXPECT_GE(flushes, 1);
  }
  EXPECT_EQ(flushes, 1);
}

TEST(FullDisk, IsSaidWithTheFile) {
  const FailingDisk disk;
  const StoreFolder folder;
  Store store(folder.options);
  FailingDisk::fillAfter(1);
  EXPECT_EQ(errorOf([&] { store.beginRun(test::sampleRun(), test::samplePlan()); }),
            folder.options.file.string() + ": the disk is full");
  EXPECT_EQ(store.failure()->reason(), "the disk is full");
  FailingDisk::clear();
}

TEST(FullDisk, AtEveryWriteOfTheOpeningIsSaid) {
  const FailingDisk disk;
  bool opened = false;
  for (std::int64_t n = 1; !opened && n < 1000; ++n) {
    const StoreFolder folder;
    FailingDisk::fillAfter(n);
    std::string error;
    {
      std::unique_ptr<Store> store;
      error = errorOf([&] { store = std::make_unique<Store>(folder.options); });
      opened = store != nullptr;
    }
    if (!opened) {
      EXPECT_THAT(error, StartsWith(folder.options.file.string() + ": ")) << n;
      EXPECT_THAT(error, AnyOf(EndsWith("the disk is full"), HasSubstr("disk I/O error"))) << n;
    }
    FailingDisk::clear();
    Store store(folder.options);
    EXPECT_TRUE(testDevice(store).passed) << n;
  }
  EXPECT_TRUE(opened);
}

}  // namespace
