#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "results/Content.h"
#include "results/Samples.h"
#include "results/Store.h"

namespace {

using results::Store;
using results::Verdict;
using test::StoreFolder;

constexpr int kRecords = 25;
constexpr int kSites = 3;

/// Tests devices at several sites until it is killed, and says on the pipe what the store has
/// confirmed, a line each: "began ID", "flushed ID COUNT", "passed ID".
[[noreturn]] void testDevices(const results::StoreOptions& options, int pipe) {
  Store store(options);
  const auto say = [&](const std::string& line) {
    static_cast<void>(write(pipe, (line + '\n').c_str(), line.size() + 1));
  };
  const auto site = [&] {
    while (true) {
      const std::string id = store.beginRun(test::sampleRun(), test::samplePlan()).id;
      say("began " + id);
      store.putStep(test::sampleStep(id));
      for (int i = 1; i <= kRecords; ++i) {
        store.addMeasurement(test::sampleMeasurement(id, i, i), test::sampleSpec());
        if (i % 10 == 0) {
          store.flush(id);
          say("flushed " + id + ' ' + std::to_string(i));
        }
      }
      store.finishRun(id, {Verdict::Pass, {}, {}, 0});
      say("passed " + id);
    }
  };
  std::vector<std::thread> sites;
  for (int i = 0; i < kSites; ++i) sites.emplace_back(site);
  for (std::thread& thread : sites) thread.join();
  _exit(EXIT_FAILURE);
}

struct Confirmed {
  std::set<std::string> begun;
  std::map<std::string, std::size_t> flushed;
  std::set<std::string> passed;
};

/// What a process said before it was killed, so long after it had begun.
Confirmed confirmedByKilled(const results::StoreOptions& options, std::chrono::microseconds after) {
  std::array<int, 2> ends{};
  if (pipe(ends.data()) != 0) throw std::runtime_error("pipe");
  const pid_t child = fork();
  if (child == 0) {
    close(ends[0]);
    testDevices(options, ends[1]);
  }
  close(ends[1]);
  std::string said(1, '\0');
  EXPECT_EQ(read(ends[0], said.data(), 1), 1);  // it has opened the store
  std::thread killer([&] {
    std::this_thread::sleep_for(after);
    kill(child, SIGKILL);
  });
  std::array<char, 4096> chunk{};
  for (ssize_t count = 0; (count = read(ends[0], chunk.data(), chunk.size())) > 0;) {
    said.append(chunk.data(), static_cast<std::size_t>(count));
  }
  killer.join();
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);

  Confirmed confirmed;
  std::istringstream lines(said.substr(0, said.rfind('\n') + 1));
  for (std::string word, id; lines >> word >> id;) {
    if (word == "began") confirmed.begun.insert(id);
    if (word == "passed") confirmed.passed.insert(id);
    if (word == "flushed") lines >> confirmed.flushed[id];
  }
  return confirmed;
}

void expectConfirmed(const results::StoreOptions& options, const Confirmed& confirmed) {
  results::Queries queries(options.file);
  for (const std::string& id : confirmed.begun) {
    const auto content = queries.run(id);
    ASSERT_TRUE(content) << id;
    EXPECT_EQ(content->run.sha256, results::sha256Of(*content));
    const std::size_t records = content->measurements.size();
    if (const auto flushed = confirmed.flushed.find(id); flushed != confirmed.flushed.end()) {
      EXPECT_GE(records, flushed->second);
    }
    if (content->run.verdict == Verdict::Pass) {
      EXPECT_EQ(records, static_cast<std::size_t>(kRecords));
    } else {
      EXPECT_EQ(content->run.verdict, Verdict::Incomplete);
      EXPECT_FALSE(confirmed.passed.contains(id));
    }
  }
}

TEST(KilledWriter, WhatWasConfirmedIsThere) {
  const char* const wanted = std::getenv("QUILLON_STORE_KILLS");
  const int kills = wanted != nullptr ? std::atoi(wanted) : 20;
  StoreFolder folder;
  folder.options.patience = std::chrono::seconds(10);
  const auto seed = std::random_device{}();
  RecordProperty("seed", std::to_string(seed));
  std::mt19937 random(seed);
  std::uniform_int_distribution<int> microseconds(0, 40'000);
  std::size_t interrupted = 0;
  std::vector<Confirmed> all;
  for (int i = 0; i < kills; ++i) {
    all.push_back(
        confirmedByKilled(folder.options, std::chrono::microseconds(microseconds(random))));
    Store store(folder.options);
    const results::Recovered recovered = store.recover();
    EXPECT_TRUE(recovered.unclean);
    interrupted += recovered.runs.size();
    EXPECT_EQ(
        results::Queries(folder.options.file).counters(store.stationId(), 0, INT64_MAX).running, 0);
    expectConfirmed(folder.options, all.back());
    if (HasFailure()) break;
  }
  for (const Confirmed& confirmed : all) expectConfirmed(folder.options, confirmed);
  EXPECT_GT(interrupted, 0U);
}

}  // namespace
