#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "results/Content.h"
#include "results/Samples.h"
#include "results/Store.h"

namespace {

using results::Store;
using results::Verdict;
using test::sampleMeasurement;
using test::StoreFolder;

TEST(StoreThreads, EightSitesAtOnceLoseNothing) {
  constexpr int kSites = 8;
  constexpr int kDevices = 5;
  constexpr int kRecords = 60;
  StoreFolder folder;
  folder.options.patience = std::chrono::seconds(10);
  std::mutex mutex;
  std::vector<std::string> finished;
  {
    Store store(folder.options);
    std::vector<std::thread> sites;
    for (int site = 0; site < kSites; ++site) {
      sites.emplace_back([&, site] {
        for (int device = 0; device < kDevices; ++device) {
          const std::string serial = std::to_string(site) + "-" + std::to_string(device);
          const std::string id =
              store.beginRun(test::sampleRun(serial, std::to_string(site)), test::samplePlan()).id;
          store.putStep(test::sampleStep(id));
          for (int i = 1; i <= kRecords; ++i) {
            store.addMeasurement(sampleMeasurement(id, i, site + i * 0.001),
                                 test::sampleSpec("1." + std::to_string(i)));
            if (i % 20 == 0) store.addAttribute({id, i, "site", serial});
          }
          store.flush(id);
          store.finishRun(id, {Verdict::Pass, {}, {}, 0});
          const std::lock_guard lock(mutex);
          finished.push_back(id);
        }
      });
    }
    std::thread page([&] {
      results::Queries queries(folder.options.file);
      for (int i = 0; i < 50; ++i) {
        queries.counters(store.stationId(), 0, INT64_MAX);
        for (const auto& run : queries.lastRuns(store.stationId(), 3)) queries.run(run.id);
        EXPECT_EQ(store.failure(), std::nullopt);
      }
    });
    for (std::thread& site : sites) site.join();
    page.join();
  }
  ASSERT_EQ(finished.size(), kSites * kDevices);
  results::Queries queries(folder.options.file);
  for (const std::string& id : finished) {
    const auto content = queries.run(id).value();
    EXPECT_EQ(content.run.verdict, Verdict::Pass);
    EXPECT_EQ(content.measurements.size(), static_cast<std::size_t>(kRecords));
    EXPECT_EQ(content.attributes.size(), 3U);
    EXPECT_EQ(content.specs.size(), static_cast<std::size_t>(kRecords));
    EXPECT_EQ(content.run.sha256, results::sha256Of(content));
  }
}

TEST(StoreThreads, TwoStationsShareAFile) {
  StoreFolder one;
  one.options.patience = std::chrono::seconds(20);
  results::StoreOptions two = one.options;
  two.stationName = "line 4";
  std::vector<std::thread> stations;
  for (const results::StoreOptions* options : {&one.options, &two}) {
    stations.emplace_back([options] {
      Store store(*options);
      for (int device = 0; device < 10; ++device) {
        const std::string id = store.beginRun(test::sampleRun(), test::samplePlan()).id;
        store.addMeasurement(sampleMeasurement(id, 1), test::sampleSpec());
        results::Event event;
        event.kind = "tested";
        store.recordEvent(event);
        store.finishRun(id, {Verdict::Pass, {}, {}, 0});
      }
      EXPECT_EQ(results::Queries(options->file).lastEvents(store.stationId(), 100).size(), 10U);
      EXPECT_EQ(results::Queries(options->file).counters(store.stationId(), 0, INT64_MAX).passed,
                10);
    });
  }
  for (std::thread& station : stations) station.join();
}

}  // namespace
